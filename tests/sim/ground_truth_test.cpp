// The ground truth: the scene on the panorama grid, the seen region and the library's framing.
#include "sim/ground_truth.h"

#include <gtest/gtest.h>

#include "sim/builtin_scene.h"
#include "sim/rig_camera.h"

namespace velmora::sim {
namespace {

TEST(GroundTruth, PanoramaOnTheScenesOwnGridIsTheScene) {
  const cv::Mat scene = makeBuiltinScene(360, 180);
  const cv::Mat truth = panoramaTruth(EquirectScene(scene), 360, 180);
  EXPECT_LE(cv::norm(truth, scene, cv::NORM_INF), 1.0);
  // A grid twice as fine puts scene pixel (x, y) at cell (2x, 2y).
  const cv::Mat fine = panoramaTruth(EquirectScene(scene), 720, 360);
  for (int y = 10; y < 170; y += 37) {
    for (int x = 0; x < 360; x += 41) {
      EXPECT_LE(cv::norm(fine.at<cv::Vec3b>(2 * y, 2 * x), scene.at<cv::Vec3b>(y, x), cv::NORM_INF),
                1.0);
    }
  }
}

TEST(GroundTruth, ShotTruthIsThePanoramaTurnedByTheHead) {
  // On a grid whose width is a multiple of 6, position p's truth is the panorama moved so that
  // its column p x W / 6 lands on the centre column W / 2.
  const cv::Mat scene = makeBuiltinScene(384, 192);
  const EquirectScene equirect(scene);
  const CameraGeometry geometry = rigGeometry(RigCamera::Down, ShotSize{400, 300}, 384, 192);
  const cv::Mat panorama = panoramaTruth(equirect, 384, 192);
  for (int position = 0; position < 6; ++position) {
    const cv::Mat shotTruth = projectedShotTruth(equirect, geometry, position);
    for (int j = 0; j < 384; j += 5) {
      const int column = (j - 192 + position * 64 + 384) % 384;
      ASSERT_LE(cv::norm(shotTruth.col(j), panorama.col(column), cv::NORM_INF), 1.0)
          << "position " << position << " column " << j;
    }
  }
}

TEST(GroundTruth, FramingAddsBlackBandsOfTwelvePercent) {
  // With 1000 rows each band is 120 rows before the stack of 1240 is resized back to 1000.
  const cv::Mat grid(1000, 64, CV_8UC3, cv::Scalar(200, 100, 50));
  const cv::Mat framed = frameLikeLibrary(grid);
  ASSERT_EQ(framed.size(), grid.size());
  const int band = 120 * 1000 / 1240;  // 96.8 rows of the output
  EXPECT_EQ(cv::countNonZero(framed.rowRange(0, band).reshape(1)), 0);
  EXPECT_EQ(cv::countNonZero(framed.rowRange(1000 - band, 1000).reshape(1)), 0);
  EXPECT_EQ(cv::norm(framed.rowRange(band + 2, 1000 - band - 2),
                     grid.rowRange(band + 2, 1000 - band - 2), cv::NORM_INF),
            0.0);
  // A single-row grid has no band at all.
  const cv::Mat thin(1, 8, CV_8UC1, cv::Scalar(7));
  EXPECT_EQ(cv::norm(frameLikeLibrary(thin), thin, cv::NORM_INF), 0.0);
}

TEST(GroundTruth, SeenRegionFollowsTheCamerasTilt) {
  const ShotSize shot{400, 300};
  for (RigCamera rigCamera : {RigCamera::Up, RigCamera::Down}) {
    const SimulatedCamera camera(defaultCalibration(rigCamera, shot),
                                 rigGeometry(rigCamera, shot, 256, 128));
    const cv::Mat seen = seenRegion(camera);
    const bool up = rigCamera == RigCamera::Up;
    // The whole horizon, all around, is seen by both cameras.
    EXPECT_EQ(cv::countNonZero(seen.row(64)), 256);
    EXPECT_EQ(cv::countNonZero(seen.row(0)) == 256, up) << cameraName(rigCamera);
    EXPECT_EQ(cv::countNonZero(seen.row(127)), 0) << cameraName(rigCamera);
  }
}

}  // namespace
}  // namespace velmora::sim
