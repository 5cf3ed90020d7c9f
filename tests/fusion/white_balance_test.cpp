#include "fusion/white_balance.h"

#include <gtest/gtest.h>

#include "fusion/color_conversion.h"
#include "support/test_support.h"

namespace velmora {
namespace {

struct Gains {
  float red;
  float green;
  float blue;
};

// Runs the limiter and returns the gains and the one printed line.
Gains limited(Gains gains, std::string& line) {
  testing::CapturedConsole console;
  limitWhiteBalanceGains(gains.red, gains.green, gains.blue);
  const auto lines = console.outLines();
  line = lines.size() == 1 ? lines[0] : "<" + std::to_string(lines.size()) + " lines>";
  return gains;
}

TEST(WhiteBalanceLimiter, GainsUpToTheLimitAreKeptAndPrinted) {
  std::string line;
  Gains gains = limited({1.0f, 1.0f, 1.0f}, line);
  EXPECT_EQ(gains.red, 1.0f);
  EXPECT_EQ(gains.green, 1.0f);
  EXPECT_EQ(gains.blue, 1.0f);
  EXPECT_EQ(line, "rgain: 1 ggain: 1 bgain: 1");

  gains = limited({1.19f, 0.8f, 1.0f}, line);
  EXPECT_EQ(gains.red, 1.19f);
  EXPECT_EQ(gains.green, 0.8f);
  EXPECT_EQ(line, "rgain: 1.19 ggain: 0.8 bgain: 1");
}

TEST(WhiteBalanceLimiter, FloatJustAboveTheDoubleLimitNormalisesToGreen) {
  // 1.2f widens to 1.2000000476837158, above the double 1.2; no gain is exactly 1.
  std::string line;
  const Gains gains = limited({1.1f, 1.15f, 1.2f}, line);
  EXPECT_FLOAT_EQ(gains.red, 1.1f / 1.15f);
  EXPECT_EQ(gains.green, 1.0f);
  EXPECT_FLOAT_EQ(gains.blue, 1.2f / 1.15f);
  EXPECT_EQ(line, "rgain: 0.956522 ggain: 1 bgain: 1.04348");
}

TEST(WhiteBalanceLimiter, UnitGainCapsTheLargerDeviationBeforeNormalising) {
  std::string line;
  // Red is exactly 1: green's deviation 0.5 becomes 0.2, blue's 0.3 is scaled by 0.4 to 0.12.
  Gains gains = limited({1.0f, 1.5f, 1.3f}, line);
  EXPECT_FLOAT_EQ(gains.red, 1.0f / 1.2f);
  EXPECT_EQ(gains.green, 1.0f);
  EXPECT_FLOAT_EQ(gains.blue, 1.12f / 1.2f);
  EXPECT_EQ(line, "rgain: 0.833333 ggain: 1 bgain: 0.933333");

  // Red and green exactly 1: blue's deviation is capped to 0.2, green's stays 0.
  gains = limited({1.0f, 1.0f, 1.3f}, line);
  EXPECT_FLOAT_EQ(gains.red, 1.0f);
  EXPECT_FLOAT_EQ(gains.blue, 1.2f);
}

TEST(WhiteBalanceLimiter, WithoutAUnitGainOnlyNormalises) {
  std::string line;
  const Gains gains = limited({1.5f, 1.3f, 1.1f}, line);
  EXPECT_FLOAT_EQ(gains.red, 1.5f / 1.3f);
  EXPECT_EQ(gains.green, 1.0f);
  EXPECT_FLOAT_EQ(gains.blue, 1.1f / 1.3f);
  EXPECT_EQ(line, "rgain: 1.15385 ggain: 1 bgain: 0.846154");
}

// Luma of an 8-bit BGR pixel in 0..255.
float lumaOf(const cv::Vec3b& pixel) {
  const float bgr[3] = {static_cast<float>(pixel[0]), static_cast<float>(pixel[1]),
                        static_cast<float>(pixel[2])};
  float yuv[3];
  bgrPixelToYuv(bgr, yuv);
  return yuv[0];
}

cv::Mat randomImage(int seed) {
  cv::RNG rng(seed);
  cv::Mat image(12, 16, CV_8UC3);
  rng.fill(image, cv::RNG::UNIFORM, 20, 200);
  return image;
}

TEST(WhiteBalanceApplication, GainsChangeChromaAndKeepLuma) {
  const cv::Mat original = randomImage(1);
  cv::Mat image = original.clone();
  applyWhiteBalanceGains(image, 1.3f, 1.0f, 0.8f);
  ASSERT_EQ(image.type(), CV_8UC3);
  ASSERT_EQ(image.size(), original.size());
  double redMinusBlueBefore = 0.0;
  double redMinusBlueAfter = 0.0;
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      const cv::Vec3b before = original.at<cv::Vec3b>(y, x);
      const cv::Vec3b after = image.at<cv::Vec3b>(y, x);
      // Luma kept up to the short inverse coefficients and the final rounding.
      EXPECT_NEAR(lumaOf(after), lumaOf(before), 1.5f) << x << "," << y;
      redMinusBlueBefore += before[2] - before[0];
      redMinusBlueAfter += after[2] - after[0];
    }
  }
  EXPECT_GT(redMinusBlueAfter - redMinusBlueBefore, 20.0 * image.total());
}

TEST(WhiteBalanceApplication, UnitGainsOnlyRoundTrip) {
  const cv::Mat original = randomImage(2);
  cv::Mat image = original.clone();
  applyWhiteBalanceGains(image, 1.0f, 1.0f, 1.0f);
  EXPECT_LE(cv::norm(image, original, cv::NORM_INF), 2.0);
}

TEST(WhiteBalanceApplication, ChannelsSaturateBeforeLumaIsRestored) {
  // White stays white: every channel is capped at 255 and the luma is white's own.
  cv::Mat image(2, 2, CV_8UC3, cv::Scalar::all(255));
  applyWhiteBalanceGains(image, 1.5f, 1.4f, 1.3f);
  EXPECT_EQ(cv::norm(image, cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(255)), cv::NORM_INF), 0.0);

  // An infinite red gain (green limited from 0) clamps red at 255 instead of overflowing.
  cv::Mat grey(1, 1, CV_8UC3, cv::Scalar::all(100));
  applyWhiteBalanceGains(grey, std::numeric_limits<float>::infinity(), 1.0f, 1.0f);
  const cv::Vec3b pixel = grey.at<cv::Vec3b>(0, 0);
  EXPECT_GT(pixel[2], 150);
  EXPECT_NEAR(lumaOf(pixel), 100.0f, 1.5f);
}

}  // namespace
}  // namespace velmora
