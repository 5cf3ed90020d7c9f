// Table values at cells whose expected source pixel follows from the camera model by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "api/status.h"
#include "rig/camera_model.h"
#include "rig/lens.h"

namespace velmora {
namespace {

// A 360 x 180 grid: one column per degree of longitude, one row per degree of latitude, so
// column 180 + a looks a degrees right of the grid's centre direction.
constexpr uint32_t kGridWidth = 360;
constexpr uint32_t kGridHeight = 180;
constexpr double kFocal = 500.0;
constexpr double kCenterX = 1000.0;
constexpr double kCenterY = 700.0;

CameraModel makeModel(float rotX = 0.0f, float rotZ = 0.0f, uint32_t size1 = 2000,
                      uint32_t size2 = 1400, uint32_t lens = kDownLens) {
  CameraModel model(CameraGeometry{size1, size2, kGridWidth, kGridHeight, lens});
  model.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << kFocal, 0, kCenterX, 0, kFocal, kCenterY, 0, 0, 0);
  model.calibration().rotX = rotX;
  model.calibration().rotZ = rotZ;
  model.computeTable(1);
  return model;
}

cv::Vec2f cell(const CameraModel& model, int row, int column) {
  return model.table().at<cv::Vec2f>(row, column);
}

// Source radius of a direction `degrees` off the optical axis, as the model computes it.
double radiusAt(double degrees, uint32_t lens) {
  const float theta = static_cast<float>(degrees * kPi / 180.0);
  return tanf(lensAngle(theta, lens)) * static_cast<float>(kFocal);
}

TEST(LensPolynomial, IsNearlyTheIdentityCloseToTheAxis) {
  EXPECT_NEAR(lensAngle(0.0f, kDownLens), -5.83568031e-8, 1e-12);
  EXPECT_NEAR(lensAngle(0.0f, kUpLens), -4.2467102e-6, 1e-10);
  EXPECT_NEAR(lensAngle(0.01f, kDownLens), 0.01, 1e-5);
  EXPECT_NEAR(lensAngle(0.01f, kUpLens), 0.01, 2e-5);
}

TEST(LensPolynomial, GrowsMonotonicallyUpToSeventyDegrees) {
  for (uint32_t lens : {kUpLens, kDownLens}) {
    float previous = lensAngle(0.0f, lens);
    for (int step = 1; step <= 70; ++step) {
      const float angle = lensAngle(static_cast<float>(step * kPi / 180.0), lens);
      EXPECT_GT(angle, previous) << "lens " << lens << " at " << step << " degrees";
      previous = angle;
    }
  }
}

TEST(ProjectionTable, OpticalAxisMapsToTheOpticalCentre) {
  const CameraModel model = makeModel();
  const cv::Vec2f centre = cell(model, kGridHeight / 2, kGridWidth / 2);
  // The lens polynomial's constant term moves the axis by a few millionths of the focal length.
  EXPECT_NEAR(centre[0], kCenterX, 1e-3);
  EXPECT_NEAR(centre[1], kCenterY, 1e-3);
}

TEST(ProjectionTable, LongitudeMovesAlongTheRowsAndLatitudeAlongTheColumns) {
  const CameraModel model = makeModel();
  // 30 degrees right of the axis on the equator: phi = 0, so u = cx + r, v = cy.
  const cv::Vec2f right = cell(model, kGridHeight / 2, kGridWidth / 2 + 30);
  EXPECT_NEAR(right[0], kCenterX + radiusAt(30.0, kDownLens), 0.05);
  EXPECT_NEAR(right[1], kCenterY, 1e-3);
  // 30 degrees above the axis (row 60 is latitude +30): Y = -sin(30), phi = +90 degrees, so
  // v = cy - r.
  const cv::Vec2f up = cell(model, kGridHeight / 2 - 30, kGridWidth / 2);
  EXPECT_NEAR(up[0], kCenterX, 1e-2);
  EXPECT_NEAR(up[1], kCenterY - radiusAt(30.0, kDownLens), 0.05);
}

TEST(ProjectionTable, EachCameraUsesItsOwnLens) {
  const CameraModel down = makeModel(0.0f, 0.0f, 2000, 1400, kDownLens);
  const CameraModel up = makeModel(0.0f, 0.0f, 2000, 1400, kUpLens);
  const int row = kGridHeight / 2;
  const int column = kGridWidth / 2 + 60;
  EXPECT_NEAR(cell(down, row, column)[0], kCenterX + radiusAt(60.0, kDownLens), 0.05);
  EXPECT_NEAR(cell(up, row, column)[0], kCenterX + radiusAt(60.0, kUpLens), 0.05);
  EXPECT_GT(std::abs(radiusAt(60.0, kDownLens) - radiusAt(60.0, kUpLens)), 1.0);
}

TEST(ProjectionTable, DirectionsBeyondSeventyDegreesAreUnseen) {
  const CameraModel model = makeModel(0.0f, 0.0f, 100000, 100000);
  const int row = kGridHeight / 2;
  EXPECT_GT(cell(model, row, kGridWidth / 2 + 69)[0], 0.0f);
  EXPECT_EQ(cell(model, row, kGridWidth / 2 + 71), cv::Vec2f(0, 0));
  EXPECT_EQ(cell(model, row, kGridWidth / 2 - 71), cv::Vec2f(0, 0));
  EXPECT_EQ(cell(model, row - 71, kGridWidth / 2), cv::Vec2f(0, 0));
  // The back hemisphere is never seen.
  EXPECT_EQ(cell(model, row, 0), cv::Vec2f(0, 0));
}

TEST(ProjectionTable, RotationAboutTheOpticalAxisTurnsTheImage) {
  // A quarter turn about z sends the direction 30 degrees right of the axis to phi = -90
  // degrees: u = cx, v = cy + r.
  const CameraModel model = makeModel(0.0f, static_cast<float>(kPi / 2));
  const cv::Vec2f turned = cell(model, kGridHeight / 2, kGridWidth / 2 + 30);
  EXPECT_NEAR(turned[0], kCenterX, 1e-2);
  EXPECT_NEAR(turned[1], kCenterY + radiusAt(30.0, kDownLens), 0.05);
}

TEST(ProjectionTable, TiltAboutTheHorizontalAxisMovesTheViewVertically) {
  // Rotating directions by -20 degrees about x brings latitude +20 onto the optical axis and
  // latitude -20 to 40 degrees off it, straight below the centre (phi = -90 degrees).
  const CameraModel model = makeModel(static_cast<float>(-20.0 * kPi / 180.0));
  const cv::Vec2f axis = cell(model, kGridHeight / 2 - 20, kGridWidth / 2);
  EXPECT_NEAR(axis[0], kCenterX, 1e-2);
  EXPECT_NEAR(axis[1], kCenterY, 1e-2);
  const cv::Vec2f below = cell(model, kGridHeight / 2 + 20, kGridWidth / 2);
  EXPECT_NEAR(below[0], kCenterX, 1e-2);
  EXPECT_NEAR(below[1], kCenterY + radiusAt(40.0, kDownLens), 0.05);
}

TEST(ProjectionTable, CellsOutsideTheShotAreUnseenAndTheLastColumnIsKept) {
  const int row = kGridHeight / 2;
  const int column = kGridWidth / 2 + 30;
  const float u = cell(makeModel(), row, column)[0];
  const auto lastColumnBelow = static_cast<uint32_t>(std::floor(u));  // size1 - 1 < u
  EXPECT_EQ(cell(makeModel(0, 0, lastColumnBelow + 1, 1400), row, column), cv::Vec2f(0, 0));
  EXPECT_EQ(cell(makeModel(0, 0, lastColumnBelow + 2, 1400), row, column)[0], u);
  // Directions left of the centre land left of cx; a centre at 0 puts them below column 0.
  CameraModel shifted(CameraGeometry{2000, 1400, kGridWidth, kGridHeight, kDownLens});
  shifted.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << kFocal, 0, 0.0, 0, kFocal, kCenterY, 0, 0, 0);
  shifted.computeTable(1);
  EXPECT_EQ(cell(shifted, row, kGridWidth / 2 - 10), cv::Vec2f(0, 0));
  EXPECT_GT(cell(shifted, row, kGridWidth / 2 + 10)[0], 0.0f);
}

TEST(ProjectionTable, ThreadCountDoesNotChangeASingleBit) {
  CameraModel model(CameraGeometry{1500, 1000, 512, 256, kUpLens});
  model.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << 400.0, 0, 750.5, 0, 400.0, 500.25, 0, 0, 0);
  model.calibration().rotX = 0.3f;
  model.calibration().rotZ = -0.2f;
  model.computeTable(1);
  const cv::Mat single = model.table().clone();
  model.computeTable(3);
  ASSERT_EQ(single.size(), model.table().size());
  EXPECT_EQ(std::memcmp(single.data, model.table().data, single.total() * single.elemSize()), 0);
}

TEST(ProjectionTable, NeedsAConfigurationAndANonEmptyGrid) {
  CameraModel model(CameraGeometry{100, 100, 64, 32, kUpLens});
  EXPECT_THROW(model.computeTable(), Failure);
  EXPECT_THROW(CameraModel(CameraGeometry{100, 100, 0, 32, kUpLens}), Failure);
}

TEST(ProjectionTable, RefusesNumbersNoCameraHas) {
  // Found by fuzzing: a centre beyond int was truncated to an integer (undefined behaviour).
  const double inf = INFINITY;
  for (const cv::Vec3d& values :
       {cv::Vec3d(500, -4.5e19, 700), cv::Vec3d(500, 1000, 3e9), cv::Vec3d(500, NAN, 700),
        cv::Vec3d(1e300, 1000, 700), cv::Vec3d(-inf, 1000, 700), cv::Vec3d(NAN, 1000, 700)}) {
    CameraModel model(CameraGeometry{100, 100, 64, 32, kUpLens});
    model.calibration().cameraMatrix =
        (cv::Mat_<double>(3, 3) << values[0], 0, values[1], 0, values[0], values[2], 0, 0, 0);
    EXPECT_THROW(model.computeTable(), Failure) << values;
  }
  // The edges of the range still work: they only leave every cell unseen.
  CameraModel edge(CameraGeometry{100, 100, 64, 32, kUpLens});
  edge.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << 3e38, 0, -2147483648.5, 0, 3e38, 2147483647.5, 0, 0, 0);
  edge.computeTable(1);
  EXPECT_EQ(cv::countNonZero(edge.table().reshape(1)), 0);
}

}  // namespace
}  // namespace velmora
