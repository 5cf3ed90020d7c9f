#include "flow/cubic_remap.h"

#include <gtest/gtest.h>

#include <limits>
#include <opencv2/imgproc.hpp>

namespace velmora {
namespace {

// Positions at every 1/32 fraction of both coordinates inside the image, around and beyond every
// edge, at the halfway points between fractions (which round to even), and not finite at all.
cv::Mat probingMap(cv::Size image) {
  std::vector<cv::Vec2f> positions;
  for (int fy = 0; fy < 32; ++fy) {
    for (int fx = 0; fx < 32; ++fx) {
      positions.emplace_back(5.0f + fx / 32.0f + (fy % 7), 4.0f + fy / 32.0f + (fx % 5));
      positions.emplace_back(5.0f + (fx + 0.5f) / 32.0f, 6.0f + (fy + 0.5f) / 32.0f);
    }
  }
  cv::RNG rng(17);
  for (int k = 0; k < 4000; ++k) {
    positions.emplace_back(rng.uniform(-4.0f, image.width + 4.0f),
                           rng.uniform(-4.0f, image.height + 4.0f));
  }
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (cv::Vec2f odd : {cv::Vec2f(nan, 3.0f), cv::Vec2f(3.0f, -inf), cv::Vec2f(inf, inf),
                        cv::Vec2f(-1e9f, 2.0f), cv::Vec2f(2.0f, 5e8f), cv::Vec2f(-0.0f, -0.0f),
                        cv::Vec2f(image.width - 1.0f, image.height - 1.0f)}) {
    positions.push_back(odd);
  }
  while (positions.size() % 64 != 0) positions.emplace_back(1.0f, 1.0f);
  return cv::Mat(positions, true).reshape(2, static_cast<int>(positions.size() / 64)).clone();
}

TEST(CubicRemap, GivesCvRemapsBytesAtEveryFractionEdgeAndOddPosition) {
  for (cv::Size size : {cv::Size(37, 29), cv::Size(4, 4), cv::Size(3, 7)}) {
    cv::Mat image(size, CV_8UC4);
    cv::RNG rng(size.area());
    rng.fill(image, cv::RNG::UNIFORM, 0, 256);
    image.row(0).setTo(cv::Scalar::all(255));  // sums above 255 and below 0 saturate
    const cv::Mat map = probingMap(size);
    cv::Mat expected;
    cv::remap(image, expected, map, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_CONSTANT,
              cv::Scalar::all(0));
    for (bool vectorised : {true, false}) {
      cv::Mat warped;
      remapCubicBgra(image, map, warped, vectorised);
      ASSERT_EQ(warped.size(), map.size());
      EXPECT_EQ(cv::norm(warped, expected, cv::NORM_INF), 0.0)
          << size << (vectorised ? " vectorised" : " plain");
    }
  }
}

TEST(CubicRemap, WritesIntoAViewOfALargerImage) {
  cv::Mat image(20, 20, CV_8UC4);
  cv::randu(image, 0, 256);
  const cv::Mat map = probingMap(image.size()).rowRange(0, 4);
  cv::Mat larger(10, map.cols, CV_8UC4, cv::Scalar::all(7));
  cv::Mat view = larger.rowRange(3, 7);
  remapCubicBgra(image, map, view);
  cv::Mat expected;
  cv::remap(image, expected, map, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_CONSTANT);
  EXPECT_EQ(view.data, larger.ptr(3));
  EXPECT_EQ(cv::norm(larger.rowRange(3, 7), expected, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::countNonZero(larger.rowRange(0, 3).reshape(1) != 7), 0);
}

}  // namespace
}  // namespace velmora
