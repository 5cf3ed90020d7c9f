#include "fusion/color_conversion.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

cv::Mat pixels(std::initializer_list<cv::Vec3f> values) {
  cv::Mat image(1, static_cast<int>(values.size()), CV_32FC3);
  int x = 0;
  for (const cv::Vec3f& value : values) image.at<cv::Vec3f>(0, x++) = value;
  return image;
}

TEST(ColorConversion, ForwardUsesTheFixedCoefficients) {
  // B G R: white, pure blue, pure green, pure red.
  const cv::Mat bgr = pixels({{1, 1, 1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  cv::Mat yuv;
  bgrToYuv(bgr, yuv);
  ASSERT_EQ(yuv.type(), CV_32FC3);
  const cv::Vec3f expected[] = {{1.0f, 0.0f, 0.0f},
                                {0.114f, 0.436f, -0.1f},
                                {0.587f, -0.289f, -0.515f},
                                {0.299f, -0.147f, 0.615f}};
  for (int x = 0; x < 4; ++x) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(yuv.at<cv::Vec3f>(0, x)[c], expected[x][c], 1e-6);
  }
}

TEST(ColorConversion, InverseUsesTheShortCoefficients) {
  const cv::Mat yuv = pixels({{0.5f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 1.0f}});
  cv::Mat bgr;
  yuvToBgr(yuv, bgr);
  const cv::Vec3f expected[] = {{0.5f, 0.5f, 0.5f}, {2.03f, -0.39f, 0.0f}, {0.0f, -0.58f, 1.14f}};
  for (int x = 0; x < 3; ++x) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(bgr.at<cv::Vec3f>(0, x)[c], expected[x][c], 1e-6);
  }
}

TEST(ColorConversion, InPlaceEqualsSeparateDestination) {
  cv::Mat image(7, 5, CV_32FC3);
  cv::randu(image, 0.0f, 1.0f);
  cv::Mat separate;
  bgrToYuv(image, separate);
  cv::Mat inPlace = image.clone();
  bgrToYuv(inPlace, inPlace);
  EXPECT_EQ(cv::norm(separate, inPlace, cv::NORM_INF), 0.0);

  yuvToBgr(separate, image);  // a destination of the right size is reused
  yuvToBgr(inPlace, inPlace);
  EXPECT_EQ(cv::norm(image, inPlace, cv::NORM_INF), 0.0);
}

TEST(ColorConversion, RoundTripShiftsColoursOnlySlightly) {
  cv::Mat image(16, 16, CV_32FC3);
  cv::randu(image, 0.0f, 1.0f);
  cv::Mat back;
  bgrToYuv(image, back);
  yuvToBgr(back, back);
  const double shift = cv::norm(image, back, cv::NORM_INF);
  EXPECT_GT(shift, 0.0);  // the short inverse coefficients are not an exact inverse
  EXPECT_LT(shift, 0.01);
}

}  // namespace
}  // namespace velmora
