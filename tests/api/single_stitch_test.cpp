// The single-exposure stitch's transcript, output and failure paths through the public interface.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "support/test_support.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::TempDir;

constexpr unsigned kFailed = 0xFFFFFFFFu;
constexpr int kShotWidth = 228;
constexpr int kShotHeight = 152;

class SingleStitch : public ::testing::Test {
 protected:
  void SetUp() override {
    handle_ = ZEMU_CreateOptFlowStitchHandle();
    sim::SimulationRequest request;
    request.camera = sim::RigCamera::Up;
    request.shotSize = sim::ShotSize{kShotWidth, kShotHeight};
    request.gridWidth = 390;
    request.gridHeight = 200;
    request.outputDir = dir_.file("shots");
    request.writeGroundTruth = false;
    files_ = sim::simulateCamera(sim::makeBuiltinScene(390, 200), request);
    shots_ = sim::shotsOfBracket(files_, 0);
  }
  void TearDown() override { ZEMU_DestroyOptFlowStitchHandle(handle_); }

  void init(int gridWidth = 390, int gridHeight = 200) {
    ZEMU_InitOptFlowStitchHandle(handle_, files_.configPath.c_str(), dir_.path().c_str(),
                                 kShotWidth, kShotHeight, gridWidth, gridHeight);
  }

  void stitch(const std::string& output, const std::string& config = "") {
    std::vector<const char*> paths;
    for (const auto& shot : shots_) paths.push_back(shot.c_str());
    const std::string configPath = config.empty() ? files_.configPath : config;
    ZEMU_ExecuteOptFlowStitchHandle(handle_, configPath.c_str(), paths.data(), output.c_str(), 1.0f,
                                    1.0f, 1.0f);
  }

  unsigned code() const { return ZEMU_GetOptFlowStitchCode(handle_); }

  TempDir dir_;
  void* handle_ = nullptr;
  sim::SimulatedFiles files_;
  std::vector<std::string> shots_;
};

TEST_F(SingleStitch, WritesTheFramedPanoramaAtTheGridSizeWithItsTranscript) {
  {
    CapturedConsole console;
    init();
  }
  // The table is rebuilt when the cache is gone.
  std::filesystem::remove(dir_.file("table_Up.bin"));
  CapturedConsole console;
  stitch(dir_.file("pano.png"));
  EXPECT_EQ(code(), 0u) << console.err();
  EXPECT_EQ(console.outLines(),
            (std::vector<std::string>{"Optical Flow Stitch start.", "Stitch up cameras.",
                                      "Optical flow stitch finished.",
                                      "---------------------------------"}));
  EXPECT_TRUE(std::filesystem::exists(dir_.file("table_Up.bin")));
  const cv::Mat panorama = cv::imread(dir_.file("pano.png"));
  ASSERT_EQ(panorama.size(), cv::Size(390, 200));
  // trunc(200 x 0.12) = 24 black rows above and below, 200 + 48 rows resized to 200: the top
  // 19 rows stay black, the horizon does not.
  EXPECT_EQ(cv::countNonZero(panorama.rowRange(0, 18).reshape(1)), 0);
  EXPECT_EQ(cv::countNonZero(panorama.rowRange(182, 200).reshape(1)), 0);
  EXPECT_GT(cv::countNonZero(panorama.row(100).reshape(1)), 3 * 390 * 9 / 10);
}

TEST_F(SingleStitch, AShotOfAnotherSizeStopsTheCallBeforeAnythingIsWritten) {
  {
    CapturedConsole console;
    init();
  }
  cv::Mat narrow = cv::imread(shots_[3]);
  cv::imwrite(dir_.file("narrow.png"), narrow.colRange(0, kShotWidth - 1));
  shots_[3] = dir_.file("narrow.png");
  CapturedConsole console;
  stitch(dir_.file("pano.png"));
  EXPECT_EQ(code(), kFailed);
  EXPECT_EQ(console.errLines(),
            (std::vector<std::string>{"Read imgPath: " + dir_.file("narrow.png") + " error."}));
  EXPECT_FALSE(std::filesystem::exists(dir_.file("pano.png")));
}

TEST_F(SingleStitch, UnreadableTruncatedAndMissingShotsAreRefused) {
  {
    CapturedConsole console;
    init();
  }
  const std::string bytes = testing::readFile(shots_[0]);
  testing::writeTextFile(dir_.file("cut.png"), bytes.substr(0, bytes.size() / 2));
  testing::writeTextFile(dir_.file("text.png"), "hello");
  for (const std::string& bad : {dir_.file("cut.png"), dir_.file("text.png"),
                                 dir_.file("missing.png"), dir_.path().string()}) {
    shots_[5] = bad;
    CapturedConsole console;
    stitch(dir_.file("pano.png"));
    EXPECT_EQ(code(), kFailed) << bad;
    EXPECT_EQ(console.errLines(), (std::vector<std::string>{"Read imgPath: " + bad + " error."}));
  }
  EXPECT_FALSE(std::filesystem::exists(dir_.file("pano.png")));
}

TEST_F(SingleStitch, UnknownCameraUninitialisedCameraAndNullArgumentsFailCleanly) {
  CapturedConsole console;
  stitch(dir_.file("pano.png"));  // Init never ran
  EXPECT_EQ(code(), kFailed);
  init();
  stitch(dir_.file("pano.png"), dir_.file("shots/up.txt"));
  EXPECT_EQ(code(), kFailed);
  ZEMU_ExecuteOptFlowStitchHandle(handle_, files_.configPath.c_str(), nullptr,
                                  dir_.file("pano.png").c_str(), 1, 1, 1);
  EXPECT_EQ(code(), kFailed);
  ZEMU_ExecuteOptFlowStitchHandle(nullptr, files_.configPath.c_str(), nullptr, nullptr, 1, 1, 1);
  const auto errors = console.errLines();
  ASSERT_EQ(errors.size(), 4u);
  EXPECT_NE(errors[0].find("not initialised"), std::string::npos);
  EXPECT_EQ(errors[1], "Configure path:" + dir_.file("shots/up.txt") + " error.");
  EXPECT_FALSE(std::filesystem::exists(dir_.file("pano.png")));
}

TEST_F(SingleStitch, AFailedWriteIsReportedAndLeavesNoFile) {
  {
    CapturedConsole console;
    init();
  }
  CapturedConsole console;
  stitch(dir_.file("missing/pano.png"));
  EXPECT_EQ(code(), kFailed);
  EXPECT_EQ(
      console.errLines(),
      (std::vector<std::string>{"Write image: " + dir_.file("missing/pano.png") + " error."}));
  stitch(dir_.file("pano.unknown"));
  EXPECT_EQ(code(), kFailed);
  EXPECT_FALSE(std::filesystem::exists(dir_.file("pano.unknown")));
}

}  // namespace
}  // namespace velmora
