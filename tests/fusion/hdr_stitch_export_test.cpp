// The HDR stitch through the public interface, on a simulated bracket, with a stand-in colour
// script that hands its input back as its result.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "api/stitch_handle.h"
#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "support/test_support.h"
#include "tools/scoped_process_state.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using Lines = std::vector<std::string>;

constexpr unsigned kFailed = 0xFFFFFFFFu;
constexpr int kGridWidth = 576;
constexpr int kGridHeight = 288;
constexpr int kBandRows = 34;  // int(288 x 0.12)

class BracketedStitch : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::writeStandInColourStep(work_.path());
    sim::SimulationRequest request;
    request.camera = sim::RigCamera::Up;
    request.shotSize = sim::ShotSize{342, 228};
    request.gridWidth = kGridWidth;
    request.gridHeight = kGridHeight;
    request.exposures = {2.0f, 1.0f, 0.5f};  // slot 0 the brightest, slot 2 the darkest
    request.outputDir = work_.file("shots");
    request.writeGroundTruth = false;
    const auto files = sim::simulateCamera(sim::makeBuiltinScene(kGridWidth, kGridHeight), request);
    for (const auto& position : files.shots) {
      for (const auto& shot : position) shots_.push_back(shot);
    }
    CapturedConsole quiet;
    ZEMU_InitOptFlowStitchHandle(handle_, files.configPath.c_str(), work_.path().c_str(), 342, 228,
                                 kGridWidth, kGridHeight);
    ASSERT_EQ(code(), 0u);
  }
  void TearDown() override { ZEMU_DestroyOptFlowStitchHandle(handle_); }

  void hdr(const std::string& output, cv::Vec3f gains = {1, 1, 1}, int exposures = 3) {
    std::vector<const char*> pointers;
    for (const auto& shot : shots_) pointers.push_back(shot.c_str());
    ZEMU_ExecuteOptFlowStitchHDRHandle(handle_, pointers.data(), output.c_str(), 0, gains[0],
                                       gains[1], gains[2], exposures);
  }
  unsigned code() const { return ZEMU_GetOptFlowStitchCode(handle_); }
  bool exists(const std::string& name) const { return std::filesystem::exists(work_.file(name)); }

  testing::TempDir work_;
  testing::ScopedWorkingDirectory inside_{work_.path()};
  std::vector<std::string> shots_;
  void* handle_ = ZEMU_CreateOptFlowStitchHandle();
};

TEST_F(BracketedStitch, WithoutVideoLeavesTheIntermediateForTheColourStep) {
  const std::string output = work_.file("pano.png");
  {
    CapturedConsole console;
    hdr(output, {1.1f, 1.15f, 1.2f});  // red, green, blue: limited, then printed
    EXPECT_EQ(code(), 0u) << console.err();
    Lines lines = console.outLines();
    ASSERT_EQ(lines.size(), 6u);
    for (int timed : {2, 3}) lines[timed] = lines[timed].substr(0, lines[timed].find(": ") + 2);
    EXPECT_EQ(Lines(lines.begin(), lines.end() - 1),
              (Lines{"Optical Flow Stitch start.", "rgain: 0.956522 ggain: 1 bgain: 1.04348",
                     " HDR spend time : ", "Optical flow stitch spend time : ",
                     "Optical flow stitch finished."}));
  }
  EXPECT_FALSE(exists("pano.png"));
  EXPECT_EQ(cv::imread(output + ".jpg").size(), cv::Size(kGridWidth, kGridHeight));
  EXPECT_EQ(static_cast<StitchHandle*>(handle_)->pendingIsp.at(output), output + ".jpg");

  CapturedConsole console;
  ZEMU_ExecuteISPHandle(handle_, output.c_str());
  EXPECT_EQ(code(), 0u) << console.err();
  EXPECT_FALSE(exists("pano.png.jpg"));
  EXPECT_EQ(cv::imread(output).size(), cv::Size(kGridWidth, kGridHeight + 2 * kBandRows));
}

TEST_F(BracketedStitch, TwoExposureBracketsFailInsideTheFusionWithoutKillingTheHost) {
  CapturedConsole console;
  hdr(work_.file("pano.jpg"), {1, 1, 1}, 2);
  EXPECT_EQ(code(), kFailed);
  EXPECT_EQ(console.errLines(), Lines{"unknow error."});
  EXPECT_FALSE(exists("pano.jpg.jpg"));
}

}  // namespace
}  // namespace velmora
