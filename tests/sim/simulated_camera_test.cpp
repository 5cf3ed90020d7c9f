// The simulated camera's default calibrations: neighbours overlap, each camera looks its way, and
// the seen region follows the tilt. (That its mapping reproduces the library's projection table is
// the stitch quality test's: the simulated shots stitch back into the scene.)
#include "sim/simulated_camera.h"

#include <gtest/gtest.h>

#include "sim/ground_truth.h"
#include "sim/rig_camera.h"
#include "sim/rig_frame.h"

namespace velmora::sim {
namespace {

constexpr ShotSize kShot{400, 300};

class SimulatedCameraTest : public ::testing::TestWithParam<RigCamera> {};

bool sees(const SimulatedCamera& camera, double longitude, double latitude) {
  cv::Point2d pixel;
  return camera.pixelOfDirection(directionOf(longitude * CV_PI / 180.0, latitude * CV_PI / 180.0),
                                 pixel);
}

TEST_P(SimulatedCameraTest, DefaultCalibrationLetsNeighboursOverlapAndLooksUpOrDown) {
  // A seam band needs each shot from its axis to 45 degrees towards either neighbour, around the
  // horizon where the ring's seams run.
  for (ShotSize shot : {kRealShotSize, ShotSize{640, 640}, kShot}) {
    const SimulatedCamera camera(defaultCalibration(GetParam(), shot),
                                 rigGeometry(GetParam(), shot, 512, 256));
    for (double latitude = -20.0; latitude <= 20.0; latitude += 5.0) {
      for (double longitude = -45.0; longitude <= 45.0; longitude += 1.0) {
        ASSERT_TRUE(sees(camera, longitude, latitude))
            << shot.width << "x" << shot.height << " at " << longitude << "," << latitude;
      }
    }
  }
  const CameraGeometry geometry = rigGeometry(GetParam(), kShot, 256, 128);
  const SimulatedCamera camera(defaultCalibration(GetParam(), kShot), geometry);
  const bool up = GetParam() == RigCamera::Up;
  EXPECT_EQ(sees(camera, 0, 90), up);
  EXPECT_EQ(sees(camera, 0, -60), !up);
  EXPECT_FALSE(sees(camera, 0, -90));
  // The seen region: the whole horizon, the zenith only looking up, never the nadir.
  const cv::Mat seen = seenRegion(camera);
  EXPECT_EQ(cv::countNonZero(seen.row(64)), 256);
  EXPECT_EQ(cv::countNonZero(seen.row(0)) == 256, up);
  EXPECT_EQ(cv::countNonZero(seen.row(127)), 0);
  EXPECT_THROW(SimulatedCamera(CameraCalibration(), geometry), std::runtime_error);
  EXPECT_THROW(SimulatedCamera(makeCalibration(-5.0, 200, 150, 0, 0), geometry),
               std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(BothCameras, SimulatedCameraTest,
                         ::testing::Values(RigCamera::Up, RigCamera::Down),
                         [](const auto& info) { return cameraName(info.param); });

}  // namespace
}  // namespace velmora::sim
