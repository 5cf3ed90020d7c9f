// The simulated camera against the library's projection table: the simulator's pixel-to-direction
// mapping must be the exact inverse of the table, and the default calibrations must close the ring.
#include "sim/simulated_camera.h"

#include <gtest/gtest.h>

#include <cmath>

#include "rig/camera_model.h"
#include "sim/rig_camera.h"
#include "sim/rig_frame.h"

namespace velmora::sim {
namespace {

constexpr ShotSize kShot{400, 300};
constexpr int kGridWidth = 512;
constexpr int kGridHeight = 256;

CameraModel tableFor(RigCamera rigCamera, const CameraCalibration& calibration) {
  CameraModel model(rigGeometry(rigCamera, kShot, kGridWidth, kGridHeight));
  model.calibration() = calibration;
  model.computeTable(1);
  return model;
}

class SimulatedCameraTest : public ::testing::TestWithParam<RigCamera> {};

TEST_P(SimulatedCameraTest, TablePixelsMapBackToTheirCells) {
  const RigCamera rigCamera = GetParam();
  const CameraCalibration calibration = defaultCalibration(rigCamera, kShot);
  const CameraModel model = tableFor(rigCamera, calibration);
  const SimulatedCamera camera(calibration, model.geometry());
  const GridFrame grid(kGridWidth, kGridHeight);
  double worstCells = 0.0;
  int checked = 0;
  for (int i = 0; i < kGridHeight; ++i) {
    const cv::Vec2f* records = model.table().ptr<cv::Vec2f>(i);
    for (int j = 0; j < kGridWidth; ++j) {
      if (records[j][0] == 0.0f || records[j][1] == 0.0f) continue;
      cv::Vec3d direction;
      ASSERT_TRUE(camera.directionOfPixel(records[j][0], records[j][1], direction))
          << "cell " << i << "," << j;
      const cv::Vec3d expected = directionOf(grid.tableLongitude(j), grid.latitude(i));
      const double angle = std::acos(std::min(1.0, direction.dot(expected)));
      worstCells = std::max(worstCells, angle * grid.scale / kFullTurn);
      ++checked;
    }
  }
  EXPECT_GT(checked, kGridWidth * kGridHeight / 8);
  // Far below a grid cell: the float records themselves limit it.
  EXPECT_LT(worstCells, 2e-3);
}

TEST_P(SimulatedCameraTest, ForwardMappingReproducesTheTable) {
  const RigCamera rigCamera = GetParam();
  const CameraCalibration calibration = defaultCalibration(rigCamera, kShot);
  const CameraModel model = tableFor(rigCamera, calibration);
  const SimulatedCamera camera(calibration, model.geometry());
  const GridFrame grid(kGridWidth, kGridHeight);
  int disagreements = 0;
  double worstPixels = 0.0;
  for (int i = 0; i < kGridHeight; ++i) {
    const cv::Vec2f* records = model.table().ptr<cv::Vec2f>(i);
    for (int j = 0; j < kGridWidth; ++j) {
      const bool tableSees = records[j][0] != 0.0f && records[j][1] != 0.0f;
      cv::Point2d pixel;
      const bool cameraSees =
          camera.pixelOfDirection(directionOf(grid.tableLongitude(j), grid.latitude(i)), pixel);
      if (tableSees != cameraSees) {
        ++disagreements;
      } else if (tableSees) {
        worstPixels =
            std::max(worstPixels, cv::norm(pixel - cv::Point2d(records[j][0], records[j][1])));
      }
    }
  }
  // Only cells within float rounding of the shot's edge may be judged differently.
  EXPECT_LE(disagreements, 2);
  EXPECT_LT(worstPixels, 1e-3);
}

TEST_P(SimulatedCameraTest, DefaultCalibrationLetsNeighboursOverlap) {
  // A seam band needs each shot from its axis to 45 degrees towards either neighbour, around the
  // horizon where the ring's seams run.
  const RigCamera rigCamera = GetParam();
  for (ShotSize shot : {kShot, kRealShotSize, ShotSize{640, 640}}) {
    const SimulatedCamera camera(defaultCalibration(rigCamera, shot),
                                 rigGeometry(rigCamera, shot, kGridWidth, kGridHeight));
    for (double latitude = -20.0; latitude <= 20.0; latitude += 5.0) {
      for (double longitude = -45.0; longitude <= 45.0; longitude += 1.0) {
        cv::Point2d pixel;
        EXPECT_TRUE(camera.pixelOfDirection(
            directionOf(longitude * CV_PI / 180.0, latitude * CV_PI / 180.0), pixel))
            << shot.width << "x" << shot.height << " at " << longitude << "," << latitude;
      }
    }
  }
}

TEST_P(SimulatedCameraTest, DefaultCalibrationLooksUpOrDown) {
  const RigCamera rigCamera = GetParam();
  const SimulatedCamera camera(defaultCalibration(rigCamera, kShot),
                               rigGeometry(rigCamera, kShot, kGridWidth, kGridHeight));
  cv::Point2d pixel;
  const bool up = rigCamera == RigCamera::Up;
  EXPECT_EQ(camera.pixelOfDirection(directionOf(0.0, CV_PI / 2), pixel), up);
  EXPECT_EQ(camera.pixelOfDirection(directionOf(0.0, -60.0 * CV_PI / 180.0), pixel), !up);
  EXPECT_FALSE(camera.pixelOfDirection(directionOf(0.0, -CV_PI / 2), pixel));
}

TEST(SimulatedCamera, RejectsAMissingOrNegativeCalibration) {
  const CameraGeometry geometry = rigGeometry(RigCamera::Down, kShot, kGridWidth, kGridHeight);
  EXPECT_THROW(SimulatedCamera(CameraCalibration(), geometry), std::runtime_error);
  EXPECT_THROW(SimulatedCamera(makeCalibration(-5.0, 200, 150, 0, 0), geometry),
               std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(BothCameras, SimulatedCameraTest,
                         ::testing::Values(RigCamera::Up, RigCamera::Down),
                         [](const auto& info) { return cameraName(info.param); });

}  // namespace
}  // namespace velmora::sim
