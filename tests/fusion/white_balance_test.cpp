#include "fusion/white_balance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "fusion/color_conversion.h"
#include "support/test_support.h"

namespace velmora {
namespace {

TEST(WhiteBalanceLimiter, KeepsCapsOrNormalisesAndPrintsTheResult) {
  const struct {
    cv::Vec3f in;  // red, green, blue
    cv::Vec3f out;
    const char* line;
  } cases[] = {
      {{1, 1, 1}, {1, 1, 1}, "rgain: 1 ggain: 1 bgain: 1"},
      {{1.19f, 0.8f, 1}, {1.19f, 0.8f, 1}, "rgain: 1.19 ggain: 0.8 bgain: 1"},
      // 1.2f widens to 1.2000000476837158, above the double 1.2; no gain is exactly 1.
      {{1.1f, 1.15f, 1.2f},
       {1.1f / 1.15f, 1, 1.2f / 1.15f},
       "rgain: 0.956522 ggain: 1 bgain: 1.04348"},
      // Red exactly 1: green's deviation 0.5 is capped to 0.2, blue's 0.3 scaled by 0.4 to 0.12.
      {{1, 1.5f, 1.3f}, {1 / 1.2f, 1, 1.12f / 1.2f}, "rgain: 0.833333 ggain: 1 bgain: 0.933333"},
      // Red and green exactly 1: green's deviation 0 stays, blue's is capped.
      {{1, 1, 1.3f}, {1, 1, 1.2f}, "rgain: 1 ggain: 1 bgain: 1.2"},
      // No unit gain: only normalised.
      {{1.5f, 1.3f, 1.1f},
       {1.5f / 1.3f, 1, 1.1f / 1.3f},
       "rgain: 1.15385 ggain: 1 bgain: 0.846154"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    cv::Vec3f gains = c.in;
    testing::CapturedConsole console;
    limitWhiteBalanceGains(gains[0], gains[1], gains[2]);
    EXPECT_LT(cv::norm(gains, c.out, cv::NORM_INF), 1e-6);
    EXPECT_EQ(console.outLines(), std::vector<std::string>{c.line});
  }
}

// The gains through whole-image OpenCV steps: split, gained channels capped and truncated,
// Y U V of both, the original luma with the gained chroma back to B G R, convertTo, merge.
cv::Mat referenceBalance(const cv::Mat& image, float red, float green, float blue) {
  cv::Mat original, gained;
  image.convertTo(original, CV_32FC3);
  std::vector<cv::Mat> channels;
  cv::split(original, channels);
  const float gains[3] = {blue, green, red};
  for (int c = 0; c < 3; ++c) {
    channels[c] = cv::min(channels[c] * gains[c], 255.0f);
    for (float& v : cv::Mat_<float>(channels[c])) v = std::trunc(v);
  }
  cv::merge(channels, gained);
  cv::Mat before, after;
  bgrToYuv(original, before);
  bgrToYuv(gained, after);
  before.forEach<cv::Vec3f>(
      [&](cv::Vec3f& yuv, const int* at) { after.at<cv::Vec3f>(at[0], at[1])[0] = yuv[0]; });
  yuvToBgr(after, after);
  cv::Mat result;
  after.convertTo(result, CV_8UC3);
  return result;
}

TEST(WhiteBalanceApplication, EqualsTheWholeImageStepsAndSurvivesAnInfiniteGain) {
  cv::RNG rng(4);
  for (const cv::Vec3f& gains :
       {cv::Vec3f(1, 1, 1), cv::Vec3f(1.3f, 1, 0.8f), cv::Vec3f(0.7f, 1.1f, 2.5f)}) {
    cv::Mat image(9, 37, CV_8UC3);  // an odd width
    rng.fill(image, cv::RNG::UNIFORM, 0, 256);
    const cv::Mat expected = referenceBalance(image, gains[0], gains[1], gains[2]);
    applyWhiteBalanceGains(image, gains[0], gains[1], gains[2]);
    EXPECT_EQ(cv::norm(image, expected, cv::NORM_INF), 0.0) << gains;
  }
  // An infinite red gain (green limited from 0) clamps red at 255 instead of overflowing.
  cv::Mat grey(1, 1, CV_8UC3, cv::Scalar::all(100));
  applyWhiteBalanceGains(grey, std::numeric_limits<float>::infinity(), 1.0f, 1.0f);
  EXPECT_GT(grey.at<cv::Vec3b>(0, 0)[2], 150);
}

}  // namespace
}  // namespace velmora
