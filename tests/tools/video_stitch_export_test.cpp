// The video stitch through the public interface: the real ffmpeg grabs the frame of a short
// test video (behind a wrapper that records its arguments), and a stand-in external stitcher on
// the PATH records its arguments and when it ran.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <thread>
#include <vector>

#include "api/console.h"
#include "api/video_stitch_handle.h"
#include "support/test_support.h"
#include "tools/process_runner.h"
#include "tools/scoped_process_state.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::readFile;
using testing::ScopedEnvironmentVariable;
using testing::TempDir;
using testing::writeScript;
using testing::writeTextFile;

constexpr int kPanoramaWidth = 512;
constexpr int kPanoramaHeight = 256;

// One run of the stand-in stitcher as it recorded itself.
struct StitcherRun {
  std::string arguments;
  long long start = 0;
  long long end = 0;
};

class VideoStitchExport : public ::testing::Test {
 protected:
  // The videos are made once for all tests: a 2-second clip at 2 frames a second of the rig's
  // frame size, and one whose frames are too small.
  static void SetUpTestSuite() {
    if (runCommand("command -v ffmpeg > /dev/null") != 0) return;
    videos_ = std::make_unique<TempDir>();
    const std::string make = "ffmpeg -hide_banner -loglevel error -f lavfi -i testsrc=size=";
    const std::string encode = ":rate=2 -t 2 -c:v mpeg4 -q:v 10 -y ";
    runCommand(make + "3840x2880" + encode + videos_->file("rig.mp4"));
    runCommand(make + "640x480" + encode + videos_->file("small.mp4"));
  }
  static void TearDownTestSuite() { videos_.reset(); }

  void SetUp() override {
    if (!videos_ || !std::filesystem::exists(videos_->file("rig.mp4"))) {
      GTEST_SKIP() << "ffmpeg is not installed or could not make the test video";
    }
    std::filesystem::copy(videos_->file("rig.mp4"), work_.file("rig.mp4"));
    std::filesystem::copy(videos_->file("small.mp4"), work_.file("small.mp4"));
    std::filesystem::create_directory(work_.file("bin"));
    std::filesystem::create_directory(work_.file("out"));
    std::filesystem::create_directory(work_.file("tables"));
    writeScript(work_.file("bin/ffmpeg"), "echo \"$*\" >> " + work_.file("ffmpeg.log") + "\nexec " +
                                              realFfmpeg() +
                                              " -hide_banner -loglevel error \"$@\"\n");
    writeScript(work_.file("bin/zemu-ffmpeg-velmora"),
                "log=" + work_.file("stitcher.log") +
                    "\necho \"start $$ $(date +%s%N)\" >> $log\n"
                    "echo \"args $$ $*\" >> $log\n"
                    "sleep 0.3\n"
                    "echo \"end $$ $(date +%s%N)\" >> $log\n");
    path_ = std::make_unique<ScopedEnvironmentVariable>(
        "PATH", work_.file("bin") + ":" + std::string(std::getenv("PATH")));

    writeTextFile(work_.file("Up.txt"), testing::cameraConfigText(1500.0, 1824.0, 2736.0));
    ASSERT_TRUE(cv::imwrite(work_.file("panorama.jpg"), cv::Mat(kPanoramaHeight, kPanoramaWidth,
                                                                CV_8UC3, cv::Scalar(30, 60, 90))));
    handle_ = newHandle(5472, 3648);
  }

  void TearDown() override {
    for (void* handle : handles_) ZEMU_DestroyVideoStitchHandle(handle);
  }

  // A video handle initialised as a host does: shot width and height, then the panorama grid.
  void* newHandle(int shotWidth, int shotHeight) {
    void* handle = ZEMU_CreateVideoStitchHandle();
    EXPECT_NE(handle, nullptr);
    handles_.push_back(handle);
    ZEMU_InitVideoStitchHandle(handle, work_.file("Up.txt").c_str(), work_.file("tables").c_str(),
                               shotWidth, shotHeight, kPanoramaWidth, kPanoramaHeight);
    return handle;
  }

  static std::string realFfmpeg() {
    for (const char* candidate : {"/usr/bin/ffmpeg", "/usr/local/bin/ffmpeg"}) {
      if (std::filesystem::exists(candidate)) return candidate;
    }
    return "ffmpeg";
  }

  void execute(void* handle, const char* panorama, const std::string& video,
               const std::string& output) {
    ZEMU_ExecuteVideoStitchHandle(handle, panorama, video.c_str(), output.c_str(), nullptr, nullptr,
                                  &outA_, &outB_);
  }

  std::vector<StitcherRun> stitcherRuns() const {
    std::map<std::string, StitcherRun> byProcess;
    std::istringstream log(readFile(work_.file("stitcher.log")));
    for (std::string line; std::getline(log, line);) {
      std::istringstream fields(line);
      std::string kind, process;
      fields >> kind >> process;
      StitcherRun& run = byProcess[process];
      if (kind == "start") fields >> run.start;
      if (kind == "end") fields >> run.end;
      if (kind == "args") std::getline(fields >> std::ws, run.arguments);
    }
    std::vector<StitcherRun> runs;
    for (const auto& entry : byProcess) runs.push_back(entry.second);
    std::sort(runs.begin(), runs.end(),
              [](const StitcherRun& a, const StitcherRun& b) { return a.start < b.start; });
    return runs;
  }

  VideoStitchHandle& state(void* handle) { return *static_cast<VideoStitchHandle*>(handle); }
  int32_t code(void* handle) const { return static_cast<int32_t>(ZEMU_GetVideoStitchCode(handle)); }

  static std::unique_ptr<TempDir> videos_;
  TempDir work_;
  std::unique_ptr<ScopedEnvironmentVariable> path_;
  std::vector<void*> handles_;
  void* handle_ = nullptr;
  float outA_ = -5.0f;
  float outB_ = -5.0f;
};

std::unique_ptr<TempDir> VideoStitchExport::videos_;

TEST_F(VideoStitchExport, GrabsProjectsAndStartsTheStitcher) {
  const std::string video = work_.file("rig.mp4");
  CapturedConsole console;

  execute(handle_, work_.file("panorama.jpg").c_str(), video, work_.file("out/scene.mp4"));

  EXPECT_EQ(code(handle_), 0) << console.err();
  EXPECT_EQ(console.err(), "");
  EXPECT_EQ(readFile(work_.file("ffmpeg.log")),
            "-i " + video + " -ss 1 -f image2 -vframes 1 " + video + ".jpg -y\n");
  EXPECT_FALSE(std::filesystem::exists(video + ".jpg"));
  const std::vector<StitcherRun> runs = stitcherRuns();
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].arguments,
            "-s " + video + " -r w=3630:h=2670:x=184:y=176 -n scene -o " + work_.file("out"));
  EXPECT_EQ(outA_, 1.0f);
  EXPECT_EQ(outB_, 3.0f);
  EXPECT_EQ(state(handle_).panoramaWidth, kPanoramaWidth);
  EXPECT_EQ(state(handle_).panoramaHeight, kPanoramaHeight);
  EXPECT_EQ(std::filesystem::file_size(work_.file("tables/table_Up.bin")),
            8u * kPanoramaWidth * kPanoramaHeight);
  EXPECT_EQ(console.outLines(),
            (std::vector<std::string>{"execute video stitch start.",
                                      "===================zemu-ffmpeg===================",
                                      "execute video stitch done", console::kSeparator}));
}

TEST_F(VideoStitchExport, MissingVideoFailsSilentlyAndALaterSuccessKeepsTheCode) {
  CapturedConsole console;

  execute(handle_, work_.file("panorama.jpg").c_str(), work_.file("absent.mp4"),
          work_.file("out/scene.mp4"));

  EXPECT_EQ(code(handle_), -1);
  EXPECT_EQ(console.out(), "execute video stitch start.\n");
  EXPECT_EQ(console.err(), "");
  EXPECT_TRUE(stitcherRuns().empty());
  EXPECT_EQ(outA_, -5.0f);
  EXPECT_EQ(outB_, -5.0f);

  // A successful call never stores a code: the failure stays visible.
  execute(handle_, nullptr, work_.file("rig.mp4"), work_.file("out/scene.mp4"));
  EXPECT_EQ(stitcherRuns().size(), 1u);
  EXPECT_EQ(outA_, 1.0f);
  EXPECT_EQ(code(handle_), -1);
}

TEST_F(VideoStitchExport, WithoutAPanoramaTheSizeIsZeroAndTheStitcherStillRuns) {
  CapturedConsole console;
  for (const char* panorama :
       {static_cast<const char*>(nullptr), "", "/nonexistent/panorama.jpg"}) {
    state(handle_).panoramaWidth = kPanoramaWidth;
    state(handle_).panoramaHeight = kPanoramaHeight;

    execute(handle_, panorama, work_.file("rig.mp4"), work_.file("out/scene.mp4"));

    EXPECT_EQ(state(handle_).panoramaWidth, 0);
    EXPECT_EQ(state(handle_).panoramaHeight, 0);
  }
  EXPECT_EQ(code(handle_), 0) << console.err();
  EXPECT_EQ(stitcherRuns().size(), 3u);
  EXPECT_EQ(outB_, 3.0f);
}

TEST_F(VideoStitchExport, OutputNameWithoutFolderOrExtensionIsTheStemInTheCurrentDirectory) {
  CapturedConsole console;

  execute(handle_, nullptr, work_.file("rig.mp4"), "scene");

  const std::vector<StitcherRun> runs = stitcherRuns();
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].arguments,
            "-s " + work_.file("rig.mp4") + " -r w=3630:h=2670:x=184:y=176 -n scene -o .");
}

TEST_F(VideoStitchExport, FrameTooSmallForTheSceneRegionIsADetectedFailure) {
  const std::string video = work_.file("small.mp4");
  CapturedConsole console;

  execute(handle_, work_.file("panorama.jpg").c_str(), video, work_.file("out/scene.mp4"));

  EXPECT_EQ(code(handle_), -1);
  ASSERT_EQ(console.errLines().size(), 1u) << console.err();
  EXPECT_NE(console.err().find("640x480"), std::string::npos) << console.err();
  EXPECT_FALSE(std::filesystem::exists(video + ".jpg"));
  EXPECT_TRUE(stitcherRuns().empty());
  EXPECT_EQ(outA_, -5.0f);
}

TEST_F(VideoStitchExport, ShotSizeThatDoesNotFitTheCanvasIsADetectedFailure) {
  void* handle = newHandle(4000, 3000);
  CapturedConsole console;

  execute(handle, work_.file("panorama.jpg").c_str(), work_.file("rig.mp4"),
          work_.file("out/scene.mp4"));

  EXPECT_EQ(code(handle), -1);
  EXPECT_EQ(console.errLines().size(), 1u) << console.err();
  EXPECT_TRUE(stitcherRuns().empty());
}

TEST_F(VideoStitchExport, NullArgumentsAreDetectedFailuresThatRunNothing) {
  const std::string video = work_.file("rig.mp4");
  const std::string output = work_.file("out/scene.mp4");
  CapturedConsole console;

  ZEMU_ExecuteVideoStitchHandle(handle_, nullptr, video.c_str(), output.c_str(), nullptr, nullptr,
                                nullptr, &outB_);
  EXPECT_EQ(code(handle_), -1);
  ZEMU_ExecuteVideoStitchHandle(handle_, nullptr, video.c_str(), output.c_str(), nullptr, nullptr,
                                &outA_, nullptr);
  ZEMU_ExecuteVideoStitchHandle(handle_, nullptr, nullptr, output.c_str(), nullptr, nullptr, &outA_,
                                &outB_);
  ZEMU_ExecuteVideoStitchHandle(handle_, nullptr, video.c_str(), nullptr, nullptr, nullptr, &outA_,
                                &outB_);
  ZEMU_ExecuteVideoStitchHandle(nullptr, nullptr, video.c_str(), output.c_str(), nullptr, nullptr,
                                &outA_, &outB_);

  EXPECT_EQ(code(handle_), -1);
  EXPECT_EQ(console.errLines().size(), 5u) << console.err();
  EXPECT_FALSE(std::filesystem::exists(work_.file("ffmpeg.log")));
  EXPECT_TRUE(stitcherRuns().empty());
  EXPECT_EQ(outA_, -5.0f);
  EXPECT_EQ(outB_, -5.0f);
}

TEST_F(VideoStitchExport, TwoThreadsNeverRunTwoStitchersAtOnce) {
  void* second = newHandle(5472, 3648);
  std::filesystem::copy(work_.file("rig.mp4"), work_.file("rig2.mp4"));
  float secondA = 0.0f;
  float secondB = 0.0f;
  // No CapturedConsole here: its string buffers are not safe for two writing threads, while the
  // process's own standard streams are.

  std::thread first([&] { execute(handle_, nullptr, work_.file("rig.mp4"), "one.mp4"); });
  std::thread other([&] {
    ZEMU_ExecuteVideoStitchHandle(second, nullptr, work_.file("rig2.mp4").c_str(), "two.mp4",
                                  nullptr, nullptr, &secondA, &secondB);
  });
  first.join();
  other.join();

  const std::vector<StitcherRun> runs = stitcherRuns();
  ASSERT_EQ(runs.size(), 2u) << readFile(work_.file("stitcher.log"));
  EXPECT_GT(runs[0].end, runs[0].start);
  EXPECT_GE(runs[1].start, runs[0].end) << readFile(work_.file("stitcher.log"));
  EXPECT_EQ(outA_, 1.0f);
  EXPECT_EQ(secondA, 1.0f);
  EXPECT_EQ(secondB, 3.0f);
}

}  // namespace
}  // namespace velmora
