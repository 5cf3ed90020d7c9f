// The simulated camera against the library's projection table: its direction-to-pixel mapping
// must reproduce the table and its pixel-to-direction mapping, through the inverse lens, undo it;
// the default calibrations must close the ring and the seen region follow the camera's tilt.
#include "sim/simulated_camera.h"

#include <gtest/gtest.h>

#include <cmath>

#include "rig/camera_model.h"
#include "sim/ground_truth.h"
#include "sim/rig_camera.h"
#include "sim/rig_frame.h"

namespace velmora::sim {
namespace {

constexpr ShotSize kShot{400, 300};
constexpr int kGridWidth = 512;
constexpr int kGridHeight = 256;

class SimulatedCameraTest : public ::testing::TestWithParam<RigCamera> {};

TEST_P(SimulatedCameraTest, MapsEveryTableCellToItsRecordAndBack) {
  const CameraCalibration calibration = defaultCalibration(GetParam(), kShot);
  CameraModel model(rigGeometry(GetParam(), kShot, kGridWidth, kGridHeight));
  model.calibration() = calibration;
  model.computeTable(1);
  const SimulatedCamera camera(calibration, model.geometry());
  const GridFrame grid(kGridWidth, kGridHeight);
  int disagreements = 0, seen = 0;
  double worstPixels = 0.0, worstCells = 0.0;
  for (int i = 0; i < kGridHeight; ++i) {
    const cv::Vec2f* records = model.table().ptr<cv::Vec2f>(i);
    for (int j = 0; j < kGridWidth; ++j) {
      const cv::Vec3d direction = directionOf(grid.tableLongitude(j), grid.latitude(i));
      const bool tableSees = records[j][0] != 0.0f && records[j][1] != 0.0f;
      cv::Point2d pixel;
      if (camera.pixelOfDirection(direction, pixel) != tableSees) {
        ++disagreements;
      } else if (tableSees) {
        ++seen;
        worstPixels =
            std::max(worstPixels, cv::norm(pixel - cv::Point2d(records[j][0], records[j][1])));
        cv::Vec3d back;
        ASSERT_TRUE(camera.directionOfPixel(records[j][0], records[j][1], back)) << i << "," << j;
        const double angle = std::acos(std::min(1.0, back.dot(direction)));
        worstCells = std::max(worstCells, angle * grid.scale / kFullTurn);
      }
    }
  }
  EXPECT_GT(seen, kGridWidth * kGridHeight / 8);
  // Only cells within float rounding of the shot's edge may be judged differently; the float
  // records themselves limit the agreement, far below a grid cell.
  EXPECT_LE(disagreements, 2);
  EXPECT_LT(worstPixels, 1e-3);
  EXPECT_LT(worstCells, 2e-3);
}

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
                                 rigGeometry(GetParam(), shot, kGridWidth, kGridHeight));
    for (double latitude = -20.0; latitude <= 20.0; latitude += 5.0) {
      for (double longitude = -45.0; longitude <= 45.0; longitude += 1.0) {
        ASSERT_TRUE(sees(camera, longitude, latitude))
            << shot.width << "x" << shot.height << " at " << longitude << "," << latitude;
      }
    }
  }
  const CameraGeometry geometry = rigGeometry(GetParam(), kShot, kGridWidth, kGridHeight);
  const SimulatedCamera camera(defaultCalibration(GetParam(), kShot), geometry);
  const bool up = GetParam() == RigCamera::Up;
  EXPECT_EQ(sees(camera, 0, 90), up);
  EXPECT_EQ(sees(camera, 0, -60), !up);
  EXPECT_FALSE(sees(camera, 0, -90));
  EXPECT_THROW(SimulatedCamera(CameraCalibration(), geometry), std::runtime_error);
  EXPECT_THROW(SimulatedCamera(makeCalibration(-5.0, 200, 150, 0, 0), geometry),
               std::runtime_error);
}

TEST_P(SimulatedCameraTest, SeenRegionHasTheWholeHorizonAndTheZenithOnlyLookingUp) {
  const cv::Mat seen = seenRegion(SimulatedCamera(defaultCalibration(GetParam(), kShot),
                                                  rigGeometry(GetParam(), kShot, 256, 128)));
  EXPECT_EQ(cv::countNonZero(seen.row(64)), 256);
  EXPECT_EQ(cv::countNonZero(seen.row(0)) == 256, GetParam() == RigCamera::Up);
  EXPECT_EQ(cv::countNonZero(seen.row(127)), 0);
}

INSTANTIATE_TEST_SUITE_P(BothCameras, SimulatedCameraTest,
                         ::testing::Values(RigCamera::Up, RigCamera::Down),
                         [](const auto& info) { return cameraName(info.param); });

}  // namespace
}  // namespace velmora::sim
