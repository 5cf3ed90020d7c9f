// The simulated camera and its shots: the default calibrations let neighbours overlap, each camera
// looks its way and the seen region follows the tilt; parallax geometry, exposure brackets and
// noise. (That the camera's mapping reproduces the library's projection table is the stitch
// quality test's: the simulated shots stitch back into the scene.)
#include "sim/simulated_camera.h"

#include <gtest/gtest.h>

#include <cmath>

#include "sim/builtin_scene.h"
#include "sim/ground_truth.h"
#include "sim/rig_camera.h"
#include "sim/rig_frame.h"
#include "sim/shot_exposure.h"
#include "sim/shot_renderer.h"

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

SimulatedCamera downCamera() {
  return SimulatedCamera(defaultCalibration(RigCamera::Down, kShot),
                         rigGeometry(RigCamera::Down, kShot, 512, 256));
}

double maxDifference(const cv::Mat& a, const cv::Mat& b) {
  return cv::norm(a, b, cv::NORM_INF);
}

TEST(ShotRenderer, ParallaxRaysEndOnTheSceneSphereAndVanishWithoutOffsetOrSphere) {
  const EquirectScene equirect(makeBuiltinScene(512, 256));
  const SimulatedCamera camera = downCamera();
  const cv::Mat far = renderShotLight(equirect, camera, 2);
  EXPECT_EQ(maxDifference(far, renderShotLight(equirect, camera, 2, Parallax{0.0, 3.0})), 0.0);
  EXPECT_EQ(maxDifference(far, renderShotLight(equirect, camera, 2, Parallax{0.1, 0.0})), 0.0);
  EXPECT_LT(maxDifference(far, renderShotLight(equirect, camera, 2, Parallax{0.1, 1e7})), 0.5);
  EXPECT_GT(maxDifference(far, renderShotLight(equirect, camera, 2, Parallax{0.1, 1.0})), 50.0);

  const Parallax parallax{0.2, 2.0};
  for (int position = 0; position < 6; ++position) {
    const double heading = headAngle(position);
    const cv::Vec3d nodal(0.2 * std::sin(heading), 0.0, 0.2 * std::cos(heading));
    for (double longitude : {-1.0, 0.3, 2.5}) {
      const cv::Vec3d ray = directionOf(heading + longitude, 0.4);
      const cv::Vec3d point = scenePointDirection(ray, position, parallax);
      EXPECT_NEAR(std::sqrt(point.dot(point)), 2.0, 1e-12);
      const cv::Vec3d along = point - nodal;
      EXPECT_NEAR(along.dot(ray) / std::sqrt(along.dot(along)), 1.0, 1e-12);
    }
  }
}

TEST(ShotExposure, BracketsOfOneLightDifferOnlyByExposureAndNoiseHasItsLevel) {
  const cv::Mat light = renderShotLight(EquirectScene(makeBuiltinScene(512, 256)), downCamera(), 1);
  cv::Mat dark, normal, bright;  // one int per value
  for (auto [factor, shot] : {std::pair{0.5f, &dark}, {1.0f, &normal}, {2.0f, &bright}}) {
    developShot(light, Exposure{factor, 0.0f, 0}).reshape(1).convertTo(*shot, CV_32S);
  }
  // Twice the light, up to the rounding of both values, and clipped where twice is past 255.
  const cv::Mat clipped = normal * 2 >= 256;
  EXPECT_LE(cv::norm(normal, dark * 2, cv::NORM_INF), 1);
  EXPECT_LE(cv::norm(bright, normal * 2, cv::NORM_INF, ~clipped), 1);
  EXPECT_EQ(cv::countNonZero((bright != 255) & clipped), 0);
  EXPECT_GT(cv::countNonZero(clipped), 1000);  // the bright sky clips

  const cv::Mat flat(200, 200, CV_32FC3, cv::Scalar::all(100.0));
  cv::Scalar mean, deviation;
  cv::meanStdDev(developShot(flat, Exposure{1.0f, 4.0f, 7}).reshape(1), mean, deviation);
  EXPECT_NEAR(mean[0], 100.0, 0.1);
  EXPECT_NEAR(deviation[0], 4.0, 0.1);
}

TEST(ShotRendering, RejectsTinyScenesParallaxInsideTheOffsetAndNoExposure) {
  // (Positions come from the simulator's own loop; the tool refuses negative offsets and noise.)
  EXPECT_THROW(makeBuiltinScene(15, 8), std::runtime_error);
  EXPECT_THROW(makeBuiltinScene(16, 7), std::runtime_error);
  const EquirectScene scene(makeBuiltinScene(16, 8));
  EXPECT_THROW(renderShotLight(scene, downCamera(), 0, Parallax{2.0, 1.0}), std::runtime_error);
  const cv::Mat light(4, 4, CV_32FC3, cv::Scalar::all(10.0));
  EXPECT_THROW(developShot(light, Exposure{0.0f, 0.0f, 0}), std::runtime_error);
}

}  // namespace
}  // namespace velmora::sim
