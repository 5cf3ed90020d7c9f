// The saturation measure that chooses the colour step's profile.
#include "common/saturation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>

namespace velmora {
namespace {

TEST(Saturation, SpreadOverMaximumSummedOverTheWholeImage) {
  // (200 - 50) / 200 per pixel for the last, whose single-precision sums may drift a little.
  const std::pair<cv::Scalar, float> uniforms[] = {
      {cv::Scalar::all(128), 0}, {cv::Scalar::all(255), 0}, {{0, 0, 255}, 1},
      {{0, 255, 0}, 1},          {{200, 0, 0}, 1},          {{50, 100, 200}, 0.75f}};
  for (const auto& [bgr, measure] : uniforms) {
    EXPECT_NEAR(measureSaturation(cv::Mat(32, 64, CV_8UC3, bgr)), measure,
                measure == 0.75f ? 0.01f : 0.0f)
        << bgr;
  }
  EXPECT_TRUE(std::isnan(measureSaturation(cv::Mat(32, 64, CV_8UC3, cv::Scalar::all(0)))));
  // Left half grey, right half pure blue: (300 - 100) / 300 at any size.
  for (const cv::Size size : {cv::Size(8, 2), cv::Size(640, 300), cv::Size(4096, 2048)}) {
    cv::Mat image(size, CV_8UC3, cv::Scalar::all(100));
    image.colRange(size.width / 2, size.width).setTo(cv::Scalar(200, 0, 0));
    EXPECT_NEAR(measureSaturation(image), 2.0f / 3.0f, 0.01f) << size;
  }
}

}  // namespace
}  // namespace velmora
