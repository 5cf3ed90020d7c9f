// The built-in scene and the region a camera sees. The panorama truth and its framing are what
// the stitch quality floors compare with, which a misplaced truth fails.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "sim/builtin_scene.h"
#include "sim/ground_truth.h"
#include "sim/rig_camera.h"

namespace velmora::sim {
namespace {

TEST(BuiltinScene, IsDeterministicHasTheSameLayoutAtEverySizeAndRejectsTinySizes) {
  const cv::Mat scene = makeBuiltinScene(512, 256);
  EXPECT_EQ(scene.type(), CV_8UC3);
  EXPECT_EQ(scene.size(), cv::Size(512, 256));
  EXPECT_EQ(cv::norm(scene, makeBuiltinScene(512, 256), cv::NORM_INF), 0.0);
  // Blurred to remove the grain and the thin lines, a large scene scaled down matches a small one.
  cv::Mat large, small;
  cv::resize(makeBuiltinScene(1024, 512), large, cv::Size(256, 128), 0, 0, cv::INTER_AREA);
  cv::resize(scene, small, cv::Size(256, 128), 0, 0, cv::INTER_AREA);
  cv::GaussianBlur(large, large, cv::Size(), 2.0);
  cv::GaussianBlur(small, small, cv::Size(), 2.0);
  EXPECT_GT(cv::PSNR(large, small), 25.0);
  EXPECT_THROW(makeBuiltinScene(15, 8), std::runtime_error);
  EXPECT_THROW(makeBuiltinScene(16, 7), std::runtime_error);
  EXPECT_NO_THROW(makeBuiltinScene(16, 8));
}

TEST(GroundTruth, SeenRegionFollowsTheCamerasTilt) {
  const ShotSize shot{400, 300};
  for (RigCamera rigCamera : {RigCamera::Up, RigCamera::Down}) {
    const cv::Mat seen = seenRegion(SimulatedCamera(defaultCalibration(rigCamera, shot),
                                                    rigGeometry(rigCamera, shot, 256, 128)));
    // The whole horizon, all around, is seen by both cameras; the zenith only by Up.
    EXPECT_EQ(cv::countNonZero(seen.row(64)), 256) << cameraName(rigCamera);
    EXPECT_EQ(cv::countNonZero(seen.row(0)) == 256, rigCamera == RigCamera::Up);
    EXPECT_EQ(cv::countNonZero(seen.row(127)), 0) << cameraName(rigCamera);
  }
}

}  // namespace
}  // namespace velmora::sim
