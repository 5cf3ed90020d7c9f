#include "rig/projection.h"

#include <gtest/gtest.h>

#include "api/status.h"

namespace velmora {
namespace {

// A 10 x 8 shot whose pixel (x, y) holds (10x + y, 100 + y, 200 - x): every neighbour differs.
cv::Mat gradientShot() {
  cv::Mat shot(8, 10, CV_8UC3);
  for (int y = 0; y < shot.rows; ++y) {
    for (int x = 0; x < shot.cols; ++x) {
      shot.at<cv::Vec3b>(y, x) = cv::Vec3b(10 * x + y, 100 + y, 200 - x);
    }
  }
  return shot;
}

const CameraGeometry kGeometry{10, 8, 6, 1, kUpLens};

cv::Mat tableOf(std::initializer_list<cv::Vec2f> records) {
  cv::Mat table(1, static_cast<int>(records.size()), CV_32FC2);
  int j = 0;
  for (const auto& record : records) table.at<cv::Vec2f>(0, j++) = record;
  return table;
}

TEST(Projection, InteriorCellsMixFourNeighboursAndTruncate) {
  const cv::Mat shot = gradientShot();
  const cv::Mat out = projectShot(shot, tableOf({{2.25f, 2.5f}}), CameraGeometry{10, 8, 1, 1});
  // Channel 0 is 10x + y: at (2.25, 2.5) the mix is 25.0 exactly; channel 2 is 200 - x = 197.75.
  const cv::Vec3b cell = out.at<cv::Vec3b>(0, 0);
  EXPECT_EQ(cell[0], 25);
  EXPECT_EQ(cell[1], 102);  // 102.5 truncates
  EXPECT_EQ(cell[2], 197);  // 197.75 truncates
}

TEST(Projection, TheInteriorTestIsAsymmetric) {
  const cv::Mat shot = gradientShot();
  // x0 = 1 is a border column, y0 = 2 is an interior row; x0 = 7 (size1 - 3) is interior but
  // x0 = 8 is not; y0 = 5 (size2 - 3) is interior but y0 = 6 is not.
  const cv::Mat out = projectShot(
      shot, tableOf({{1.5f, 3.5f}, {2.5f, 1.5f}, {7.5f, 5.5f}, {8.5f, 3.5f}, {3.5f, 6.5f}}),
      CameraGeometry{10, 8, 5, 1});
  EXPECT_EQ(out.at<cv::Vec3b>(0, 0), shot.at<cv::Vec3b>(3, 1));  // border: pixel (1, 3) as is
  EXPECT_EQ(out.at<cv::Vec3b>(0, 1), shot.at<cv::Vec3b>(1, 2));
  EXPECT_EQ(out.at<cv::Vec3b>(0, 2)[0], 80);  // interior: 10 * 7.5 + 5.5 = 80.5, truncated
  EXPECT_EQ(out.at<cv::Vec3b>(0, 3), shot.at<cv::Vec3b>(3, 8));
  EXPECT_EQ(out.at<cv::Vec3b>(0, 4), shot.at<cv::Vec3b>(6, 3));
}

TEST(Projection, RecordsWithAZeroCoordinateStayBlack) {
  const cv::Mat shot = gradientShot();
  const cv::Mat out =
      projectShot(shot, tableOf({{0.0f, 3.0f}, {3.0f, 0.0f}, {0.0f, 0.0f}, {0.5f, 0.5f}}),
                  CameraGeometry{10, 8, 4, 1});
  EXPECT_EQ(out.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(out.at<cv::Vec3b>(0, 1), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(out.at<cv::Vec3b>(0, 2), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(out.at<cv::Vec3b>(0, 3), shot.at<cv::Vec3b>(0, 0));
}

TEST(Projection, DamagedRecordsNeverReadOutsideTheShot) {
  const cv::Mat shot = gradientShot();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const cv::Mat out = projectShot(
      shot, tableOf({{1e9f, 3.0f}, {3.0f, -4.0f}, {nan, 2.0f}, {10.0f, 7.0f}}), kGeometry);
  EXPECT_EQ(cv::countNonZero(out.reshape(1)), 0);
}

TEST(Projection, ShotOfTheWrongSizeIsRefused) {
  const cv::Mat shot = gradientShot();
  EXPECT_THROW(projectShot(shot, tableOf({{1, 1}}), CameraGeometry{9, 8, 1, 1}), Failure);
  EXPECT_THROW(projectShot(cv::Mat(), tableOf({{1, 1}}), kGeometry), Failure);
}

TEST(Projection, ParallelProjectionMatchesOneByOne) {
  cv::Mat table(16, 24, CV_32FC2);
  cv::randu(table, 0.0f, 7.9f);
  std::vector<cv::Mat> shots;
  for (int k = 0; k < 6; ++k) {
    shots.push_back(gradientShot() + cv::Scalar::all(k * 7));
  }
  const auto all = projectShots(shots, table, kGeometry);
  ASSERT_EQ(all.size(), 6u);
  for (int k = 0; k < 6; ++k) {
    const cv::Mat one = projectShot(shots[k], table, kGeometry);
    EXPECT_EQ(cv::norm(one, all[k], cv::NORM_INF), 0.0) << "shot " << k;
  }
}

}  // namespace
}  // namespace velmora
