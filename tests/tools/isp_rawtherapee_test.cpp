// The colour step end to end on Linux: the shipped isp.bat and profiles, run by the library in a
// working directory set up as the README tells hosts to, with the real rawtherapee-cli.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "api/stitch_handle.h"
#include "support/test_support.h"
#include "tools/process_runner.h"
#include "tools/saturation.h"
#include "tools/scoped_process_state.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::readFile;

constexpr int kPanoramaWidth = 256, kPanoramaHeight = 128;
constexpr int kBandRows = 15;  // int(128 x 0.12)

TEST(IspWithRawTherapee, ShippedScriptColourProcessesAPendingPanorama) {
  if (runCommand("command -v rawtherapee-cli > /dev/null") != 0) {
    GTEST_SKIP() << "rawtherapee-cli is not installed";
  }
  testing::TempDir work;
  std::filesystem::copy(std::filesystem::path(VELMORA_SOURCE_DIR) / "share/isp", work.path(),
                        std::filesystem::copy_options::recursive);
  testing::ScopedWorkingDirectory inside(work.path());
  void* handle = ZEMU_CreateOptFlowStitchHandle();
  testing::writeTextFile(work.file("Up.txt"), testing::cameraConfigText(300.0, 200.0, 150.0));
  testing::CapturedConsole console;
  ZEMU_InitOptFlowStitchHandle(handle, work.file("Up.txt").c_str(), work.path().c_str(), 400, 300,
                               kPanoramaWidth, kPanoramaHeight);
  // A pale panorama: a soft blue-grey sky over a dull brown ground.
  cv::Mat pale(kPanoramaHeight, kPanoramaWidth, CV_8UC3, cv::Scalar(180, 160, 150));
  pale.rowRange(kPanoramaHeight / 2, kPanoramaHeight).setTo(cv::Scalar(90, 105, 120));
  ASSERT_TRUE(cv::imwrite("pano.jpg.jpg", pale));
  static_cast<StitchHandle*>(handle)->pendingIsp["pano.jpg"] = "pano.jpg.jpg";
  const float before = measureSaturation(cv::imread("pano.jpg.jpg"));
  ASSERT_LE(before, 0.5f);
  ZEMU_ExecuteISPHandle(handle, "pano.jpg");
  EXPECT_EQ(static_cast<int32_t>(ZEMU_GetOptFlowStitchCode(handle)), 0) << console.err();
  ZEMU_DestroyOptFlowStitchHandle(handle);
  EXPECT_FALSE(std::filesystem::exists("pano.jpg.jpg"));
  EXPECT_EQ(readFile("asset/isp_minion.pp3"), readFile("asset/satuLow.pp3"));

  const cv::Mat result = cv::imread("pano.jpg");
  ASSERT_EQ(result.size(), cv::Size(kPanoramaWidth, kPanoramaHeight + 2 * kBandRows));
  const cv::Mat content = result.rowRange(kBandRows, kBandRows + kPanoramaHeight);
  // The low-saturation profile lifts the colours of a pale panorama, and keeps its layout.
  EXPECT_GT(measureSaturation(content.clone()), before + 0.05f) << before;
  EXPECT_GT(cv::mean(content.rowRange(0, 40))[0], cv::mean(content.rowRange(88, 128))[0] + 40);
  // The first JPEG block row lies wholly in the top band.
  EXPECT_LT(cv::norm(result.rowRange(0, 8), cv::NORM_INF), 4.0);
}

}  // namespace
}  // namespace velmora
