#include "fusion/color_conversion.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

cv::Mat pixels(std::vector<cv::Vec3f> values) {
  return cv::Mat(values).reshape(3, 1).clone();
}

TEST(ColorConversion, FixedForwardAndShortInverseCoefficients) {
  // B G R: white, pure blue, pure green, pure red.
  cv::Mat yuv, bgr;
  bgrToYuv(pixels({{1, 1, 1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}), yuv);
  EXPECT_LT(cv::norm(yuv,
                     pixels({{1, 0, 0},
                             {0.114f, 0.436f, -0.1f},
                             {0.587f, -0.289f, -0.515f},
                             {0.299f, -0.147f, 0.615f}}),
                     cv::NORM_INF),
            1e-6);
  yuvToBgr(pixels({{0.5f, 0, 0}, {0, 1, 0}, {0, 0, 1}}), bgr);
  EXPECT_LT(cv::norm(bgr, pixels({{0.5f, 0.5f, 0.5f}, {2.03f, -0.39f, 0}, {0, -0.58f, 1.14f}}),
                     cv::NORM_INF),
            1e-6);
}

TEST(ColorConversion, InPlaceEqualsSeparateAndTheRoundTripShiftsSlightly) {
  cv::Mat image(7, 5, CV_32FC3), separate, back(7, 5, CV_32FC3);  // `back` is reused
  cv::randu(image, 0.0f, 1.0f);
  cv::Mat inPlace = image.clone();
  bgrToYuv(image, separate);
  bgrToYuv(inPlace, inPlace);
  EXPECT_EQ(cv::norm(separate, inPlace, cv::NORM_INF), 0.0);
  yuvToBgr(separate, back);
  yuvToBgr(inPlace, inPlace);
  EXPECT_EQ(cv::norm(back, inPlace, cv::NORM_INF), 0.0);
  const double shift = cv::norm(image, back, cv::NORM_INF);
  EXPECT_GT(shift, 0.0);  // the short inverse coefficients are not an exact inverse
  EXPECT_LT(shift, 0.01);
}

}  // namespace
}  // namespace velmora
