// Table values at cells whose expected source pixel follows from the camera model by hand, and
// what the table build and the projection refuse.
#include <gtest/gtest.h>

#include <cmath>

#include "common/status.h"
#include "rig/camera_model.h"
#include "rig/lens.h"
#include "rig/projection.h"

namespace velmora {
namespace {

// A 360 x 180 grid: column 180 + a looks a degrees right of the centre direction, row 90 - b
// b degrees above it.
constexpr int kGridWidth = 360;
constexpr int kGridHeight = 180;
constexpr double kFocal = 500.0;
constexpr double kCenterX = 1000.0;
constexpr double kCenterY = 700.0;

CameraModel makeModel(float rotX, float rotZ, uint32_t lens) {
  CameraModel model(CameraGeometry{2000, 1400, kGridWidth, kGridHeight, lens});
  model.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << kFocal, 0, kCenterX, 0, kFocal, kCenterY, 0, 0, 0);
  model.calibration().rotX = rotX;
  model.calibration().rotZ = rotZ;
  model.computeTable(1);
  return model;
}

// The cell `right` degrees right of and `up` degrees above the grid's centre.
cv::Vec2f cell(const CameraModel& model, int right, int up) {
  return model.table().at<cv::Vec2f>(kGridHeight / 2 - up, kGridWidth / 2 + right);
}

// Source radius of a direction `degrees` off the optical axis.
double radiusAt(double degrees, uint32_t lens) {
  return tanf(lensAngle(static_cast<float>(degrees * kPi / 180.0), lens)) * kFocal;
}

TEST(ProjectionTable, DirectionsLandWhereTheRotationAndLensPutThem) {
  const float quarterTurn = static_cast<float>(kPi / 2);
  const float tilt = static_cast<float>(-20.0 * kPi / 180.0);
  const struct {
    float rotX, rotZ;
    uint32_t lens;
    int right, up;
    double offAxis;  // degrees; the source pixel is the centre + radius x (du, dv)
    int du, dv;
  } cases[] = {
      {0, 0, kDownLens, 0, 0, 0, 0, 0},  // the axis, moved only by the lens's constant term
      {0, 0, kDownLens, 30, 0, 30, 1, 0},
      {0, 0, kDownLens, 0, 30, 30, 0, -1},  // up in the world is up in the shot
      {0, 0, kUpLens, 60, 0, 60, 1, 0},     // each camera its own lens
      {0, quarterTurn, kDownLens, 30, 0, 30, 0, 1},
      {tilt, 0, kDownLens, 0, 20, 0, 0, 0},  // the tilt brings latitude 20 onto the axis
      {tilt, 0, kDownLens, 0, -20, 40, 0, 1},
  };
  for (const auto& c : cases) {
    const cv::Vec2f source = cell(makeModel(c.rotX, c.rotZ, c.lens), c.right, c.up);
    const double radius = radiusAt(c.offAxis, c.lens);
    SCOPED_TRACE(std::to_string(c.right) + " right, " + std::to_string(c.up) + " up");
    EXPECT_NEAR(source[0], kCenterX + c.du * radius, 0.05);
    EXPECT_NEAR(source[1], kCenterY + c.dv * radius, 0.05);
  }
  EXPECT_GT(std::abs(radiusAt(60.0, kDownLens) - radiusAt(60.0, kUpLens)), 1.0);  // lenses differ
}

TEST(ProjectionTable, RefusesNumbersNoCameraHas) {
  const auto withMatrix = [](double focal, double centerX, double centerY) {
    CameraModel model(CameraGeometry{100, 100, 64, 32, kUpLens});
    model.calibration().cameraMatrix =
        (cv::Mat_<double>(3, 3) << focal, 0, centerX, 0, focal, centerY, 0, 0, 0);
    return model;
  };
  // Found by fuzzing: a centre beyond int was truncated to an integer (undefined behaviour).
  for (const cv::Vec3d& values :
       {cv::Vec3d(500, -4.5e19, 700), cv::Vec3d(500, 1000, 3e9), cv::Vec3d(500, NAN, 700),
        cv::Vec3d(1e300, 1000, 700), cv::Vec3d(-INFINITY, 1000, 700), cv::Vec3d(NAN, 1000, 700)}) {
    EXPECT_THROW(withMatrix(values[0], values[1], values[2]).computeTable(), Failure) << values;
  }
  // The edges of the range still work: they only leave every cell unseen.
  CameraModel edge = withMatrix(3e38, -2147483648.5, 2147483647.5);
  edge.computeTable(1);
  EXPECT_EQ(cv::countNonZero(edge.table().reshape(1)), 0);
}

TEST(Projection, ShotOfTheWrongSizeIsRefused) {
  const cv::Mat table(1, 1, CV_32FC2, cv::Scalar(1, 1)), shot(8, 10, CV_8UC3);
  EXPECT_THROW(projectShot(shot, table, CameraGeometry{9, 8, 1, 1}), Failure);
  EXPECT_THROW(projectShot(cv::Mat(), table, CameraGeometry{10, 8, 1, 1}), Failure);
  EXPECT_THROW(projectShot(cv::Mat(8, 10, CV_8UC4), table, CameraGeometry{10, 8, 1, 1}), Failure);
}

}  // namespace
}  // namespace velmora
