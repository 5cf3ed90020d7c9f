// What the library survives: every kind of bad input a host can hand it through the public
// interface, answered with the documented status code and line, never with a crash and never with
// a file that looks finished. Each test is one kind of input, tried on every operation it reaches.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/scoped_process_state.h"
#include "support/simulated_bracket.h"

namespace velmora::testing {
namespace {

namespace fs = std::filesystem;

// Every operation on the simulated bracket, with the Up camera initialised and the colour step's
// folder as the working directory.
class BadInput : public SimulatedBracket {
 protected:
  void SetUp() override {
    writeStandInColourStep(work_.path());
    CapturedConsole quiet;
    init(files_.configPath, work_.path().string());
    ASSERT_EQ(code(), 0u) << quiet.err();
  }
  void repair(const std::vector<std::string>& slots, const std::string& output,
              const std::vector<cv::Rect>& rectangles = {}) {
    std::vector<int> lefts, tops, widths, heights;
    for (const auto& r : rectangles) {
      lefts.push_back(r.x);
      tops.push_back(r.y);
      widths.push_back(r.width);
      heights.push_back(r.height);
    }
    ZEMU_ExecutePanoRepairHandle(handle_, pointers(slots).data(), output.c_str(), lefts.data(),
                                 tops.data(), widths.data(), heights.data(),
                                 static_cast<int>(rectangles.size()), 1.0f, 1.0f, 1.0f);
  }
  // Runs `call`, which must fail with exactly the lines `errors` on standard error.
  void expectFailure(const std::function<void()>& call, const Lines& errors) {
    CapturedConsole console;
    call();
    EXPECT_EQ(code(), kFailed);
    EXPECT_EQ(console.errLines(), errors);
  }
  // The colour step's verdict on a name: whether an HDR stitch left it pending.
  bool pending(const std::string& output) {
    CapturedConsole console;
    ZEMU_ExecuteISPHandle(handle_, output.c_str());
    return console.out().find(output + " not found.") == std::string::npos;
  }
  ScopedWorkingDirectory inside_{work_.path()};
};

TEST_F(BadInput, ShotFilesThatAreMissingEmptyTruncatedNotImagesOrOfTheWrongSize) {
  const std::string jpeg = readFile(singles_[0]);
  const cv::Mat shot = cv::imread(singles_[0]);
  std::vector<uchar> png;
  cv::imencode(".png", shot, png);
  writeTextFile(file("empty.jpg"), "");
  writeTextFile(file("cut.jpg"), jpeg.substr(0, jpeg.size() / 2));
  writeTextFile(file("cut.png"), std::string(png.begin(), png.end() - 20));
  writeTextFile(file("text.jpg"), "focal 1500 centerX 1824\n");
  cv::imwrite(file("narrow.png"), shot.colRange(0, kShotWidth - 1));
  cv::imwrite(file("turned.png"), shot.t());
  fs::create_directory(file("folder.jpg"));
  // The table is read while the shots are, but a call that fails on a shot never builds it.
  fs::remove(file("table_Up.bin"));

  for (const char* name : {"missing.jpg", "empty.jpg", "cut.jpg", "cut.png", "text.jpg",
                           "narrow.png", "turned.png", "folder.jpg"}) {
    SCOPED_TRACE(name);
    const Lines refusal{"Read imgPath: " + file(name) + " error."};
    auto shots = singles_, slots = slots_;
    shots[4] = slots[13] = file(name);
    expectFailure([&] { stitch(shots, file("single.png")); }, refusal);
    expectFailure([&] { hdr(file("hdr.png"), slots); }, refusal);
    expectFailure([&] { repair(slots, file("repaired.png")); }, refusal);
  }
  for (const char* name : {"single.png", "hdr.png", "hdr.png.jpg", "repaired.png",
                           "repaired.png.jpg", "isp.log", "table_Up.bin"}) {
    EXPECT_FALSE(exists(name)) << name;
  }
  EXPECT_FALSE(pending(file("hdr.png")));
}

TEST_F(BadInput, OutputFoldersThatDoNotExistOrCannotBeWrittenTo) {
  // Tests run as root, for whom permission bits stop nothing: a folder below a regular file and
  // a folder of the kernel's process file system cannot be written by anyone.
  writeTextFile(file("plain.txt"), "not a folder\n");
  const std::string folders[] = {file("missing"), file("plain.txt"), "/proc"};
  for (const std::string& folder : folders) {
    SCOPED_TRACE(folder);
    const std::string single = folder + "/single.png", hdrOutput = folder + "/hdr.png",
                      repaired = folder + "/repaired.png";
    expectFailure([&] { stitch(singles_, single); }, {"Write image: " + single + " error."});
    expectFailure([&] { hdr(hdrOutput); }, {"Write image: " + hdrOutput + ".jpg error."});
    EXPECT_FALSE(pending(hdrOutput));
    expectFailure([&] { repair(slots_, repaired); }, {"Write image: " + repaired + ".jpg error."});
    EXPECT_FALSE(exists("isp.log"));  // the colour script never ran
    for (const auto& path : {single, hdrOutput + ".jpg", repaired, repaired + ".jpg"})
      EXPECT_FALSE(fs::exists(path)) << path;
  }
  for (const std::string& folder : folders) {  // Init's table cache folder is an output folder too
    CapturedConsole console;
    init(files_.configPath, folder);
    EXPECT_EQ(code(), kFailed);
    EXPECT_EQ(console.errLines(), Lines{"Write table: " + folder + "/table_Up.bin error."});
    EXPECT_EQ(console.out().find("Init UpCam done."), std::string::npos);
  }
}

TEST_F(BadInput, ConfigurationsMissingPairsOrMissingAltogether) {
  const auto fresh = [&](const std::string& folder, const std::string& text) {
    fs::create_directory(file(folder));
    if (!text.empty()) writeTextFile(file(folder + "/Up.txt"), text);
    return file(folder + "/Up.txt");
  };
  // Only the first pairs: the rest read as zero and the stitch goes through on what was read.
  // Labels without numbers: no focal length, so the camera sees nothing and the panorama is
  // black, yet complete.
  const std::string full = readFile(files_.configPath);
  const std::string firstPairs = full.substr(0, full.find("rotX") + 4);
  for (const auto& [folder, text] : {std::pair<std::string, std::string>{"short", firstPairs},
                                     {"labels", "focal centerX centerY rotX"},
                                     {"blank", "\n"}}) {
    SCOPED_TRACE(folder);
    const std::string config = fresh(folder, text);
    CapturedConsole console;
    init(config, file(folder));
    stitch(singles_, file(folder + "/pano.png"), config);
    EXPECT_EQ(code(), 0u) << console.err();
    EXPECT_EQ(console.err(), "");
    EXPECT_EQ(cv::imread(file(folder + "/pano.png")).size(), cv::Size(kGridWidth, kGridHeight));
  }
  // No configuration file and no cached table: nothing to build the table from.
  expectFailure([&] { init(fresh("none", ""), file("none")); },
                {"No camera configuration read: cannot compute the projection table."});
  EXPECT_TRUE(fs::is_empty(file("none")));
  // Numbers no camera has: a centre beyond any pixel index, a focal length beyond double.
  for (const auto& [folder, text] :
       {std::pair<std::string, std::string>{"far", "f 26 x 1e300 y 32"},
        {"huge", "f 1e400 x 1 y 2"}}) {
    expectFailure([&] { init(fresh(folder, text), file(folder)); },
                  {"Camera configuration: focal length or optical centre out of range."});
    EXPECT_FALSE(exists(folder + "/table_Up.bin"));
  }
}

TEST_F(BadInput, TableFilesOfTheWrongSizeOrWithDamagedRecords) {
  const std::string table = file("table_Up.bin");
  const std::string good = readFile(table);
  ASSERT_EQ(good.size(), size_t{8} * kGridWidth * kGridHeight);

  // Short and empty files are not trusted: Init builds the table again.
  for (const std::string& damaged : {good.substr(0, good.size() / 2), std::string()}) {
    writeTextFile(table, damaged);
    CapturedConsole console;
    init(files_.configPath, work_.path().string());
    EXPECT_EQ(code(), 0u) << console.err();
    EXPECT_EQ(readFile(table), good);
  }
  // A longer file is read up to the grid's size; records that point anywhere (NaN, huge,
  // negative, beyond the shot) leave their cells black instead of reading outside the shot.
  std::string damaged = good + std::string(100, '\x7f');
  for (size_t record = 0; record < good.size() / 8; record += 3) {
    static const float kWild[] = {NAN, 1e30f, -7.5f, kShotHeight + 0.5f, INFINITY};
    std::memcpy(&damaged[record * 8 + (record % 2) * 4], &kWild[(record / 3) % 5], sizeof(float));
  }
  writeTextFile(table, damaged);
  CapturedConsole console;
  stitch(singles_, file("pano.png"));
  EXPECT_EQ(code(), 0u) << console.err();
  EXPECT_EQ(cv::imread(file("pano.png")).size(), cv::Size(kGridWidth, kGridHeight));
  EXPECT_EQ(readFile(table), damaged);  // trusted as it is, not rewritten
}

TEST_F(BadInput, NullHandlesPathPointersAndNullEntriesInPathLists) {
  const char* config = files_.configPath.c_str();
  const std::string out = file("out.png");
  const char* output = out.c_str();
  auto shots = pointers(singles_), slots = pointers(slots_);
  const int one[] = {10};
  {
    CapturedConsole console;
    ZEMU_InitOptFlowStitchHandle(handle_, nullptr, work_.path().c_str(), 1, 1, 1, 1);
    ZEMU_InitOptFlowStitchHandle(handle_, config, nullptr, 1, 1, 1, 1);
    ZEMU_ExecuteOptFlowStitchHandle(handle_, nullptr, shots.data(), output, 1, 1, 1);
    ZEMU_ExecuteOptFlowStitchHandle(handle_, config, nullptr, output, 1, 1, 1);
    ZEMU_ExecuteOptFlowStitchHandle(handle_, config, shots.data(), nullptr, 1, 1, 1);
    ZEMU_ExecuteOptFlowStitchHDRHandle(handle_, nullptr, output, 0, 1, 1, 1, 3);
    ZEMU_ExecuteOptFlowStitchHDRHandle(handle_, slots.data(), nullptr, 0, 1, 1, 1, 3);
    ZEMU_ExecutePanoRepairHandle(handle_, nullptr, output, one, one, one, one, 1, 1, 1, 1);
    ZEMU_ExecutePanoRepairHandle(handle_, slots.data(), nullptr, one, one, one, one, 1, 1, 1, 1);
    ZEMU_ExecutePanoRepairHandle(handle_, slots.data(), output, one, nullptr, one, one, 1, 1, 1, 1);
    ZEMU_ExecuteISPHandle(handle_, nullptr);
    EXPECT_EQ(code(), kFailed);
    const Lines errors = console.errLines();
    ASSERT_EQ(errors.size(), 11u) << console.err();
    for (const auto& line : errors) EXPECT_EQ(line.rfind("Missing ", 0), 0u) << line;
    EXPECT_EQ(console.out(), "");  // refused before any work started
  }
  // A null entry in a path list reads as an empty path, which no shot has.
  shots[2] = slots[5] = nullptr;
  CapturedConsole holes;
  ZEMU_ExecuteOptFlowStitchHandle(handle_, config, shots.data(), output, 1, 1, 1);
  ZEMU_ExecuteOptFlowStitchHDRHandle(handle_, slots.data(), output, 0, 1, 1, 1, 3);
  ZEMU_ExecutePanoRepairHandle(handle_, slots.data(), output, one, one, one, one, 1, 1, 1, 1);
  EXPECT_EQ(holes.errLines(), Lines(3, "Read imgPath:  error."));
  EXPECT_FALSE(exists("out.png") || exists("out.png.jpg"));

  // The video handle: null paths and out pointers; a null panorama path is allowed (no panorama).
  void* video = ZEMU_CreateVideoStitchHandle();
  float a = -5.0f, b = -5.0f;
  CapturedConsole console;
  ZEMU_InitVideoStitchHandle(video, nullptr, work_.path().c_str(), 1, 1, 1, 1);
  ZEMU_InitVideoStitchHandle(video, config, nullptr, 1, 1, 1, 1);
  ZEMU_ExecuteVideoStitchHandle(video, nullptr, nullptr, output, nullptr, nullptr, &a, &b);
  ZEMU_ExecuteVideoStitchHandle(video, nullptr, "v.mp4", nullptr, nullptr, nullptr, &a, &b);
  ZEMU_ExecuteVideoStitchHandle(video, nullptr, "v.mp4", output, nullptr, nullptr, nullptr, &b);
  ZEMU_ExecuteVideoStitchHandle(video, nullptr, "v.mp4", output, nullptr, nullptr, &a, nullptr);
  EXPECT_EQ(ZEMU_GetVideoStitchCode(video), kFailed);
  EXPECT_EQ(console.errLines().size(), 6u) << console.err();
  EXPECT_TRUE(a == -5.0f && b == -5.0f);
  ZEMU_DestroyVideoStitchHandle(video);

  // A null handle: every call does nothing, the code getters answer -1.
  ZEMU_InitOptFlowStitchHandle(nullptr, "/a/Up.txt", "/tmp", 1, 1, 1, 1);
  ZEMU_InitVideoStitchHandle(nullptr, "/a/Up.txt", "/tmp", 1, 1, 1, 1);
  ZEMU_ExecuteOptFlowStitchHandle(nullptr, config, shots.data(), output, 1, 1, 1);
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(nullptr), kFailed);
  EXPECT_EQ(ZEMU_GetVideoStitchCode(nullptr), kFailed);
  ZEMU_DestroyOptFlowStitchHandle(nullptr);
  ZEMU_DestroyVideoStitchHandle(nullptr);
  EXPECT_EQ(console.errLines().size(), 9u) << console.err();
}

TEST_F(BadInput, RepairRectanglesWithNegativeOrHugeValuesAreSkipped) {
  const int top = kBandRows + 80;
  const std::vector<cv::Rect> rectangles = {{-5, top, 32, 40},
                                            {80, INT_MIN, 32, 40},
                                            {80, top, -32, 40},
                                            {80, top, 32, 0},
                                            {80, top, INT_MAX, 40},
                                            {INT_MAX, top, 32, 40},
                                            {80, INT_MAX, 32, INT_MAX},
                                            {INT_MIN, INT_MIN, INT_MAX, INT_MAX},
                                            {kGridWidth - 31, top, 32, 40}};
  CapturedConsole console;
  repair(slots_, file("repaired.png"), rectangles);
  EXPECT_EQ(code(), 0u) << console.err();
  Lines expected;
  for (size_t i = 0; i < rectangles.size(); ++i)
    expected.push_back(std::to_string(i) + "th ROI outside the panorama.");
  EXPECT_EQ(console.errLines(), expected);
  EXPECT_EQ(cv::imread(file("repaired.png")).rows, kGridHeight + 2 * kBandRows);

  // A negative count means no rectangles, whatever the arrays are.
  CapturedConsole negative;
  ZEMU_ExecutePanoRepairHandle(handle_, pointers(slots_).data(), file("repaired.png").c_str(),
                               nullptr, nullptr, nullptr, nullptr, -3, 1.0f, 1.0f, 1.0f);
  EXPECT_EQ(code(), 0u) << negative.err();
  EXPECT_EQ(negative.err(), "");
}

// ---- External tools missing from the PATH ------------------------------------------------------

TEST_F(BadInput, ColourScriptMissingFailsTheColourStepAndTheRepair) {
  fs::remove(file("isp.bat"));
  fs::create_directory(file("empty-bin"));
  ScopedEnvironmentVariable path("PATH", file("empty-bin"));
  const std::string output = file("hdr.png"), repaired = file("repaired.png");
  {
    CapturedConsole console;
    hdr(output);
    ASSERT_EQ(code(), 0u) << console.err();
  }
  expectFailure([&] { ZEMU_ExecuteISPHandle(handle_, output.c_str()); },
                {"ISP: the script left no readable image at " + output + "."});
  expectFailure([&] { repair(slots_, repaired); }, {"Read ISP result: " + repaired + " error."});
  for (const auto& path : {output, repaired, repaired + ".jpg"}) EXPECT_FALSE(fs::exists(path));
}

// The HDR stitch's video variant runs the colour script at once.
TEST(BadInputLargeShots, ColourScriptMissingFailsTheHdrVideoVariant) {
  TempDir work;
  ScopedWorkingDirectory inside(work.path());
  writeStandInColourStep(work.path());
  fs::remove(work.file("isp.bat"));
  LargeShotRig rig(work);
  ASSERT_EQ(ZEMU_GetOptFlowStitchCode(rig.handle), 0u);
  // A real clip beside the shots: the frame grab works, only the colour script is missing.
  if (!makeTestClip(rig.video, "4000x3000")) GTEST_SKIP() << "ffmpeg is not installed";
  const std::string output = work.file("final.jpg");
  CapturedConsole console;
  EXPECT_EQ(rig.hdrWithVideo(output), kFailed);
  EXPECT_EQ(console.errLines(), Lines{"Read ISP result: " + output + " error."});
  EXPECT_NE(console.out().find("-----------------ISP-----------------"), std::string::npos);
  for (const auto& path : {output, output + ".jpg", rig.video + ".jpg"})
    EXPECT_FALSE(fs::exists(path)) << path;
}

TEST_F(BadInput, FfmpegMissingFailsTheVideoStitchSilentlyAndRunsNoStitcher) {
  // A real clip, made while ffmpeg is still reachable, so only the missing tool can fail.
  const std::string clip = file("rig.mp4");
  if (!makeTestClip(clip, "3840x2880")) GTEST_SKIP() << "ffmpeg is not installed";
  fs::create_directory(file("bin"));
  writeScript(file("bin/zemu-ffmpeg-velmora"), "echo \"$*\" >> " + file("stitcher.log"));
  ScopedEnvironmentVariable path("PATH", file("bin"));
  void* video = ZEMU_CreateVideoStitchHandle();
  ZEMU_InitVideoStitchHandle(video, files_.configPath.c_str(), work_.path().c_str(), 5472, 3648,
                             kGridWidth, kGridHeight);
  float a = -5.0f, b = -5.0f;
  CapturedConsole console;
  ZEMU_ExecuteVideoStitchHandle(video, nullptr, clip.c_str(), file("out/scene.mp4").c_str(),
                                nullptr, nullptr, &a, &b);
  EXPECT_EQ(ZEMU_GetVideoStitchCode(video), kFailed);
  EXPECT_EQ(console.err(), "");
  EXPECT_TRUE(a == -5.0f && b == -5.0f);
  EXPECT_FALSE(exists("rig.mp4.jpg") || exists("stitcher.log"));
  ZEMU_DestroyVideoStitchHandle(video);
}

}  // namespace
}  // namespace velmora::testing
