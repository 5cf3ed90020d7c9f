// The lens polynomials, the table build and the shot projection against plain formulas and
// per-cell loops: the fast paths drop powers, skip rows and cells and must give the same bits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <opencv2/calib3d.hpp>

#include "rig/camera_model.h"
#include "rig/lens.h"
#include "rig/projection.h"
#include "support/test_support.h"

namespace velmora {
namespace {

using testing::sameBits;

bool sameBits(float a, float b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The lens polynomials as written first: every power from powf, the square as theta * theta.
float plainLensAngle(float theta, uint32_t selector) {
  const double p[10] = {powf(theta, 0.0f), powf(theta, 1.0f), theta * theta,     powf(theta, 3.0f),
                        powf(theta, 4.0f), powf(theta, 5.0f), powf(theta, 6.0f), powf(theta, 7.0f),
                        powf(theta, 8.0f), powf(theta, 9.0f)};
  if (selector != kUpLens) {
    return static_cast<float>(0.00609440953 * p[9] - 0.0594089197 * p[8] + 0.242690843 * p[7] -
                              0.521631479 * p[6] + 0.56525997 * p[5] - 0.117396546 * p[4] -
                              0.348350596 * p[3] - 0.00221254837 * p[2] + 1.00007236 * p[1] -
                              5.83568031e-8 * p[0]);
  }
  return static_cast<float>(0.652310693 * p[8] - 0.14312539 * p[9] - 1.1369249 * p[7] +
                            0.877972237 * p[6] - 0.225359601 * p[5] + 0.104907503 * p[4] -
                            0.361511533 * p[3] - 0.00159835497 * p[2] + 1.00051129 * p[1] -
                            4.2467102e-6 * p[0]);
}

TEST(LensAngle, MatchesThePlainPowerFormulaBitForBit) {
  // Thetas 0.01 % apart from 0 to past the 70-degree view limit, and the odd ones out.
  std::vector<float> thetas{1.2217305f, std::numeric_limits<float>::denorm_min(),
                            std::numeric_limits<float>::quiet_NaN()};
  for (float theta = 0.0f; theta < 1.25f; theta = std::nextafter(theta + theta * 1e-4f, 2.0f))
    thetas.push_back(theta);
  for (uint32_t lens : {kUpLens, kDownLens}) {
    for (float theta : thetas) {
      ASSERT_TRUE(sameBits(lensAngle(theta, lens), plainLensAngle(theta, lens)))
          << "lens " << lens << " theta " << theta;
    }
  }
}

struct Calibration {
  float rotX, rotZ;
  uint32_t lens;
};

CameraModel modelOf(const Calibration& c, uint32_t width, uint32_t height) {
  CameraModel model(CameraGeometry{900, 1300, width, height, c.lens});
  model.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << 420.0, 0, 450.7, 0, 420.0, 650.2, 0, 0, 0);
  model.calibration().rotX = c.rotX;
  model.calibration().rotZ = c.rotZ;
  return model;
}

// Every cell computed in full, in grid order, as the formulas read.
cv::Mat referenceTable(const CameraModel& model) {
  const CameraGeometry& g = model.geometry();
  const CameraCalibration& c = model.calibration();
  cv::Mat rotation;
  cv::Rodrigues(cv::Vec3d(c.rotX, 0.0, c.rotZ), rotation);
  const cv::Matx33d r(rotation);
  const float focal = static_cast<float>(c.cameraMatrix.at<double>(0, 0));
  const int cx = static_cast<int>(c.cameraMatrix.at<double>(0, 2)),
            cy = static_cast<int>(c.cameraMatrix.at<double>(1, 2));
  const double scale = std::max(g.outWidth, g.outHeight);
  cv::Mat table =
      cv::Mat::zeros(static_cast<int>(g.outHeight), static_cast<int>(g.outWidth), CV_32FC2);
  for (uint32_t i = 0; i < g.outHeight; ++i) {
    const float latitude = static_cast<float>(-2.0 * kPi * (i - g.outHeight * 0.5) / scale);
    for (uint32_t j = 0; j < g.outWidth; ++j) {
      const float longitude = static_cast<float>(2.0 * kPi * (j - g.outWidth * 0.5) / scale);
      const float X = cosf(latitude) * sinf(longitude), Y = -sinf(latitude),
                  Z = cosf(latitude) * cosf(longitude);
      const double x = r(0, 0) * X + r(0, 1) * Y + r(0, 2) * Z + 0.0,
                   y = r(1, 0) * X + r(1, 1) * Y + r(1, 2) * Z + 0.0,
                   z = r(2, 0) * X + r(2, 1) * Y + r(2, 2) * Z + 0.0;
      const double phi = std::atan2(-y, x), theta = std::atan2(std::sqrt(x * x + y * y), z);
      if (static_cast<float>(theta) > 1.2217304555555555) continue;
      const float radius = tanf(lensAngle(static_cast<float>(theta), g.lensSelector)) * focal;
      const float u = static_cast<float>(std::cos(phi) * radius + cx),
                  v = static_cast<float>(cy - std::sin(phi) * radius);
      if (u > g.size1 - 1.0 || v > g.size2 - 1.0 || u < 0 || v < 0) continue;
      table.at<cv::Vec2f>(static_cast<int>(i), static_cast<int>(j)) = cv::Vec2f(u, v);
    }
  }
  return table;
}

TEST(TableBuild, EqualsThePlainLoopBitForBitWhateverItSkips) {
  // Level and tilted views, rolled ones and a camera looking almost straight down, so that whole
  // rows and most cells lie beyond the 70 degree limit.
  for (const Calibration& c :
       {Calibration{0.0f, 0.0f, kUpLens}, Calibration{0.35f, 0.0f, kUpLens},
        Calibration{-0.8f, 0.3f, kDownLens}, Calibration{1.45f, -0.6f, kDownLens},
        Calibration{-1.5f, 0.0f, kUpLens}}) {
    CameraModel model = modelOf(c, 360, 180);
    const cv::Mat expected = referenceTable(model);
    ASSERT_GT(cv::countNonZero(expected.reshape(1)), 0) << "rotX " << c.rotX;
    for (unsigned threads : {1u, 3u}) {
      model.computeTable(threads);
      EXPECT_TRUE(sameBits(model.table(), expected))
          << "rotX " << c.rotX << " rotZ " << c.rotZ << " threads " << threads;
    }
  }
}

// Every cell of the grid tested in full, as the projection reads.
cv::Mat referenceProjection(const cv::Mat& shot, const cv::Mat& table,
                            const CameraGeometry& geometry) {
  cv::Mat out = cv::Mat::zeros(table.size(), CV_8UC3);
  for (int i = 0; i < table.rows; ++i) {
    for (int j = 0; j < table.cols; ++j) {
      const float u = table.at<cv::Vec2f>(i, j)[0], v = table.at<cv::Vec2f>(i, j)[1];
      if (!(u > 0 && v > 0 && u < shot.cols && v < shot.rows)) continue;  // unseen or damaged
      const int x0 = static_cast<int>(std::floor(u)), y0 = static_cast<int>(std::floor(v));
      const float fx = u - x0, fy = v - y0;
      cv::Vec3b& cell = out.at<cv::Vec3b>(i, j);
      if (x0 > 1 && x0 < static_cast<int>(geometry.size1) - 2 && y0 >= 2 &&
          y0 < static_cast<int>(geometry.size2) - 2) {
        for (int c = 0; c < 3; ++c) {
          cell[c] = static_cast<uchar>((1 - fx) * (1 - fy) * shot.at<cv::Vec3b>(y0, x0)[c] +
                                       fx * (1 - fy) * shot.at<cv::Vec3b>(y0, x0 + 1)[c] +
                                       (1 - fx) * fy * shot.at<cv::Vec3b>(y0 + 1, x0)[c] +
                                       fx * fy * shot.at<cv::Vec3b>(y0 + 1, x0 + 1)[c]);
        }
      } else {
        cell = shot.at<cv::Vec3b>(y0, x0);
      }
    }
  }
  return out;
}

TEST(Projection, EqualsThePlainLoopOnRowsAndCellsItSkips) {
  CameraModel model = modelOf({0.9f, 0.2f, kUpLens}, 240, 120);
  model.computeTable(1);
  cv::Mat table = model.table().clone();
  // Unseen cells inside a row's seen span, one coordinate zero, the shot's borders, and records
  // of a damaged file.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const int middle = table.rows / 2;
  const cv::Vec2f odd[] = {{0.0f, 0.0f},    {0.0f, 5.5f},    {7.5f, 0.0f}, {0.5f, 0.5f},
                           {898.9f, 3.25f}, {1.0f, 1298.5f}, {nan, 3.0f},  {5.0f, 1300.0f},
                           {-3.0f, 4.0f},   {2.5f, 1e30f}};
  int j = 0;
  while (!(table.at<cv::Vec2f>(middle, j)[0] != 0.0f)) ++j;
  for (const cv::Vec2f& record : odd) table.at<cv::Vec2f>(middle, j += 3) = record;
  // An entirely unseen row and a row seen in its last cell only.
  table.row(middle + 1).setTo(cv::Scalar::all(0));
  table.row(middle + 2).setTo(cv::Scalar::all(0));
  table.at<cv::Vec2f>(middle + 2, table.cols - 1) = cv::Vec2f(100.25f, 200.75f);

  std::vector<cv::Mat> shots(3);
  cv::RNG rng(9);
  for (cv::Mat& shot : shots) {
    shot.create(1300, 900, CV_8UC3);
    rng.fill(shot, cv::RNG::UNIFORM, 0, 256);
  }
  const std::vector<cv::Mat> all = projectShots(shots, table, model.geometry());
  for (std::size_t k = 0; k < shots.size(); ++k) {
    const cv::Mat expected = referenceProjection(shots[k], table, model.geometry());
    EXPECT_TRUE(sameBits(all[k], expected)) << "shot " << k;
    EXPECT_TRUE(sameBits(projectShot(shots[k], table, model.geometry()), expected)) << "shot " << k;
  }
  // Only some columns: those as projected in full, the rest black.
  const cv::Range columns(table.cols / 3, table.cols / 2);
  const std::vector<cv::Mat> part = projectShots(shots, table, model.geometry(), columns);
  for (std::size_t k = 0; k < shots.size(); ++k) {
    cv::Mat expected = cv::Mat::zeros(all[k].size(), all[k].type());
    all[k].colRange(columns).copyTo(expected.colRange(columns));
    EXPECT_TRUE(sameBits(part[k], expected)) << "shot " << k;
  }
}

}  // namespace
}  // namespace velmora
