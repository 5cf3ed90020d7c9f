#include "tools/saturation.h"

#include <gtest/gtest.h>

#include <cmath>

#include "api/status.h"
#include "tools/isp_script.h"

namespace velmora {
namespace {

cv::Mat uniformImage(int cols, int rows, uchar blue, uchar green, uchar red) {
  return cv::Mat(rows, cols, CV_8UC3, cv::Scalar(blue, green, red));
}

TEST(Saturation, GreyMeasuresZeroAndPurePrimariesMeasureOne) {
  EXPECT_EQ(measureSaturation(uniformImage(64, 32, 128, 128, 128)), 0.0f);
  EXPECT_EQ(measureSaturation(uniformImage(64, 32, 255, 255, 255)), 0.0f);
  EXPECT_EQ(measureSaturation(uniformImage(64, 32, 0, 0, 255)), 1.0f);
  EXPECT_EQ(measureSaturation(uniformImage(64, 32, 0, 255, 0)), 1.0f);
  EXPECT_EQ(measureSaturation(uniformImage(64, 32, 200, 0, 0)), 1.0f);
}

TEST(Saturation, AllBlackIsNotANumber) {
  EXPECT_TRUE(std::isnan(measureSaturation(uniformImage(64, 32, 0, 0, 0))));
}

TEST(Saturation, MixedColourMeasuresTheSpreadOverTheMaximum) {
  // (max - min) / max = (200 - 50) / 200 for every pixel; the single-precision sums over
  // 2048 x 1024 pixels may drift a little from the exact ratio.
  EXPECT_NEAR(measureSaturation(uniformImage(64, 32, 50, 100, 200)), 0.75f, 0.01f);
}

TEST(Saturation, SumsRunOverTheWholeImageWhateverItsSize) {
  // Left half grey, right half pure blue: maxima are 100 and 200 in equal parts, minima 100
  // and 0, so the measure is (300 - 100) / 300 at any size (apart from the blended middle).
  for (const cv::Size size : {cv::Size(8, 2), cv::Size(640, 300), cv::Size(4096, 2048)}) {
    cv::Mat image = uniformImage(size.width, size.height, 100, 100, 100);
    image.colRange(size.width / 2, size.width).setTo(cv::Scalar(200, 0, 0));
    EXPECT_NEAR(measureSaturation(image), 2.0f / 3.0f, 0.01f) << size;
  }
}

TEST(Saturation, EmptyOrWrongTypeImageIsADetectedFailure) {
  EXPECT_THROW(measureSaturation(cv::Mat()), Failure);
  EXPECT_THROW(measureSaturation(cv::Mat(8, 8, CV_8UC1, cv::Scalar(9))), Failure);
}

TEST(IspProfileChoice, OnlyAMeasureAboveOneHalfTakesTheHighProfile) {
  EXPECT_STREQ(ispProfileFor(0.5f), "./asset/satuLow.pp3");
  EXPECT_STREQ(ispProfileFor(std::nextafter(0.5f, 1.0f)), "./asset/satuHigh.pp3");
  EXPECT_STREQ(ispProfileFor(0.0f), "./asset/satuLow.pp3");
  EXPECT_STREQ(ispProfileFor(1.0f), "./asset/satuHigh.pp3");
  EXPECT_STREQ(ispProfileFor(std::nanf("")), "./asset/satuLow.pp3");
}

}  // namespace
}  // namespace velmora
