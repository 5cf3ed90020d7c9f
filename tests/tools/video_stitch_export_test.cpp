// The video stitch: its command lines and output name split, then the whole export, where the real
// ffmpeg grabs the frame of a short test video and a stand-in stitcher on the PATH records its
// arguments and times.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <thread>

#include "api/video_stitch_handle.h"
#include "common/console.h"
#include "common/status.h"
#include "support/scoped_process_state.h"
#include "support/test_support.h"
#include "tools/frame_grab.h"
#include "tools/path_separators.h"
#include "tools/video_stitcher_command.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::readFile;
using testing::TempDir;
using testing::writeScript;

constexpr int kPanoramaWidth = 512;
constexpr int kPanoramaHeight = 256;
constexpr char kCrop[] = " -r w=3630:h=2670:x=184:y=176 -n scene -o ";

struct StitcherRun {  // as the stand-in stitcher recorded itself
  std::string arguments;
  long long start = 0;
  long long end = 0;
};

class VideoStitchExport : public ::testing::Test {
 protected:
  // Made once: clips of the rig's frame size and too small.
  static void SetUpTestSuite() {
    videos_ = std::make_unique<TempDir>();
    if (!testing::makeTestClip(videos_->file("rig.mp4"), "3840x2880")) videos_.reset();
    if (videos_) testing::makeTestClip(videos_->file("small.mp4"), "640x480");
  }
  static void TearDownTestSuite() { videos_.reset(); }

  void SetUp() override {
    if (!videos_) GTEST_SKIP() << "ffmpeg is not installed or could not make the test video";
    for (const char* video : {"rig.mp4", "small.mp4"})
      std::filesystem::copy(videos_->file(video), file(video));
    for (const char* folder : {"bin", "out", "tables"})
      std::filesystem::create_directory(file(folder));
    // One line per run: its start and end in nanoseconds, then its arguments.
    writeScript(file("bin/zemu-ffmpeg-velmora"),
                "start=$(date +%s%N); sleep 0.3\necho \"$start $(date +%s%N) $*\" >> " +
                    file("stitcher.log") + "\n");
    path_ = std::make_unique<testing::ScopedEnvironmentVariable>(
        "PATH", file("bin") + ":" + std::getenv("PATH"));
    testing::writeTextFile(file("Up.txt"), testing::cameraConfigText(1500.0, 1824.0, 2736.0));
    ASSERT_TRUE(cv::imwrite(file("panorama.jpg"), cv::Mat(kPanoramaHeight, kPanoramaWidth, CV_8UC3,
                                                          cv::Scalar(30, 60, 90))));
    handle_ = newHandle(5472, 3648);
  }
  void TearDown() override {
    for (void* handle : handles_) ZEMU_DestroyVideoStitchHandle(handle);
  }

  void* newHandle(int shotWidth, int shotHeight) {
    handles_.push_back(ZEMU_CreateVideoStitchHandle());
    ZEMU_InitVideoStitchHandle(handles_.back(), file("Up.txt").c_str(), file("tables").c_str(),
                               shotWidth, shotHeight, kPanoramaWidth, kPanoramaHeight);
    return handles_.back();
  }
  void execute(void* handle, const char* panorama, const std::string& video,
               const std::string& output) {
    ZEMU_ExecuteVideoStitchHandle(handle, panorama, video.c_str(), output.c_str(), nullptr, nullptr,
                                  &outA_, &outB_);
  }
  std::vector<StitcherRun> stitcherRuns() const {
    std::vector<StitcherRun> runs;
    std::istringstream log(readFile(file("stitcher.log")));
    for (StitcherRun run;
         log >> run.start >> run.end && std::getline(log >> std::ws, run.arguments);) {
      runs.push_back(run);
    }
    std::sort(runs.begin(), runs.end(),
              [](const auto& a, const auto& b) { return a.start < b.start; });
    return runs;
  }
  std::string file(const std::string& name) const { return work_.file(name); }
  static VideoStitchHandle& state(void* handle) { return *static_cast<VideoStitchHandle*>(handle); }
  int32_t code(void* handle) const { return static_cast<int32_t>(ZEMU_GetVideoStitchCode(handle)); }

  static inline std::unique_ptr<TempDir> videos_;
  TempDir work_;
  std::unique_ptr<testing::ScopedEnvironmentVariable> path_;
  std::vector<void*> handles_;
  void* handle_ = nullptr;
  float outA_ = -5.0f;
  float outB_ = -5.0f;
};

TEST_F(VideoStitchExport, GrabsProjectsAndStartsTheStitcherWithOrWithoutAPanorama) {
  const std::string video = file("rig.mp4");
  CapturedConsole console;
  execute(handle_, file("panorama.jpg").c_str(), video, file("out/scene.mp4"));
  EXPECT_EQ(cv::Size(state(handle_).panoramaWidth, state(handle_).panoramaHeight),
            cv::Size(kPanoramaWidth, kPanoramaHeight));
  EXPECT_EQ(console.outLines(), (testing::Lines{"execute video stitch start.",
                                                "===================zemu-ffmpeg===================",
                                                "execute video stitch done", console::kSeparator}));
  // Without a panorama the size is zero and the stitcher still runs; an output name without
  // folder or extension is the stem in the current directory.
  for (const char* panorama : {static_cast<const char*>(nullptr), "", "/nonexistent/pano.jpg"}) {
    state(handle_).panoramaWidth = state(handle_).panoramaHeight = 7;
    execute(handle_, panorama, video, "scene");
    EXPECT_TRUE(state(handle_).panoramaWidth == 0 && state(handle_).panoramaHeight == 0);
  }
  EXPECT_EQ(code(handle_), 0);
  EXPECT_EQ(console.err(), "");
  EXPECT_FALSE(std::filesystem::exists(video + ".jpg"));  // the grabbed frame
  testing::Lines arguments;
  for (const StitcherRun& run : stitcherRuns()) arguments.push_back(run.arguments);
  EXPECT_EQ(arguments,
            (testing::Lines{"-s " + video + kCrop + file("out"), "-s " + video + kCrop + ".",
                            "-s " + video + kCrop + ".", "-s " + video + kCrop + "."}));
  EXPECT_TRUE(outA_ == 1.0f && outB_ == 3.0f) << outA_ << " " << outB_;
}

TEST_F(VideoStitchExport, FailuresRunNoStitcherAndLeaveTheOutputsAlone) {
  const std::string video = file("rig.mp4"), output = file("out/scene.mp4");
  const std::string panorama = file("panorama.jpg");
  {  // A missing video fails silently; a later success never stores a code, so it stays visible.
    CapturedConsole console;
    execute(handle_, panorama.c_str(), file("absent.mp4"), output);
    EXPECT_EQ(code(handle_), -1);
    EXPECT_EQ(console.out() + console.err(), "execute video stitch start.\n");
    EXPECT_EQ(outA_, -5.0f);
    execute(handle_, nullptr, video, output);
    EXPECT_EQ(outA_, 1.0f);
    EXPECT_EQ(code(handle_), -1);
  }
  std::filesystem::remove(file("stitcher.log"));
  outA_ = outB_ = -5.0f;
  void* wrongShotSize = newHandle(4000, 3000);  // does not fit the canvas
  CapturedConsole console;
  execute(handle_, panorama.c_str(), file("small.mp4"), output);  // frame too small for the crop
  ASSERT_EQ(console.errLines().size(), 1u) << console.err();
  EXPECT_NE(console.err().find("640x480"), std::string::npos) << console.err();
  EXPECT_FALSE(std::filesystem::exists(file("small.mp4.jpg")));
  execute(wrongShotSize, panorama.c_str(), video, output);
  EXPECT_EQ(code(wrongShotSize), -1);
  EXPECT_EQ(console.errLines().size(), 2u) << console.err();
  EXPECT_TRUE(stitcherRuns().empty());
  EXPECT_TRUE(outA_ == -5.0f && outB_ == -5.0f);
}

TEST_F(VideoStitchExport, TwoThreadsNeverRunTwoStitchersAtOnce) {
  void* second = newHandle(5472, 3648);
  std::filesystem::copy(file("rig.mp4"), file("rig2.mp4"));
  float secondA = 0.0f, secondB = 0.0f;
  // No CapturedConsole here: its string buffers are not safe for two writing threads, while the
  // process's own standard streams are.
  std::thread first([&] { execute(handle_, nullptr, file("rig.mp4"), "one.mp4"); });
  std::thread other([&] {
    ZEMU_ExecuteVideoStitchHandle(second, nullptr, file("rig2.mp4").c_str(), "two.mp4", nullptr,
                                  nullptr, &secondA, &secondB);
  });
  first.join();
  other.join();
  const std::vector<StitcherRun> runs = stitcherRuns();
  ASSERT_EQ(runs.size(), 2u) << readFile(file("stitcher.log"));
  EXPECT_GT(runs[0].end, runs[0].start);
  EXPECT_GE(runs[1].start, runs[0].end) << readFile(file("stitcher.log"));
  EXPECT_TRUE(outA_ == 1.0f && secondA == 1.0f && secondB == 3.0f);
}

TEST(VideoCommands, NativeSeparatorsAndTheOutputStemUpToTheLastDot) {
  for (const auto& [path, native] : {std::pair{"//server/share//x", "\\\\server\\share\\\\x"},
                                     {"already\\back\\slashed", "already\\back\\slashed"},
                                     {"", ""}}) {
    EXPECT_EQ(toNativeSeparators(path, '\\'), native);
    EXPECT_EQ(toNativeSeparators(path), path);
  }
  EXPECT_EQ(frameGrabCommand("D:/v/a.mp4", '\\'),
            "ffmpeg  -i D:\\v\\a.mp4 -ss 1 -f image2  -vframes 1 D:\\v\\a.mp4.jpg -y");
  EXPECT_EQ(grabbedFramePath("D:/v/a.mp4"), "D:/v/a.mp4.jpg");
  EXPECT_EQ(
      videoStitcherCommand("D:/v/a.mp4", splitOutputPath("D:/out/scene.mp4"), '\\'),
      "zemu-ffmpeg-velmora -s D:\\v\\a.mp4 -r w=3630:h=2670:x=184:y=176  -n scene -o D:\\out");
  const std::tuple<const char*, const char*, const char*> outputs[] = {
      {"/a/b.c/scene.final.mp4", "/a/b.c", "scene.final"},
      {"out.d/scene", "out.d", "scene"},
      {"out/.hidden", "out", ".hidden"},
      {"/scene.mp4", "/", "scene"},
      {"", ".", ""}};
  for (const auto& [path, directory, stem] : outputs) {
    const StitcherOutput output = splitOutputPath(path);
    EXPECT_EQ(output.directory + "|" + output.stem, directory + std::string("|") + stem) << path;
  }
}

}  // namespace
}  // namespace velmora
