// The coarsest level's patch search, its patch cost and brightness gain.
#include "flow/initial_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "flow/flow_test_images.h"

namespace velmora {
namespace {

constexpr int kSide = 48;

cv::Mat grey(const cv::Mat& bgr) {
  cv::Mat grey8, grey;
  cv::cvtColor(bgr, grey8, cv::COLOR_BGR2GRAY);
  grey8.convertTo(grey, CV_32F, 1.0 / 255.0);
  return grey;
}

cv::Mat ones() {
  return cv::Mat(kSide, kSide, CV_32F, cv::Scalar(1.0f));
}

// Grey images of one texture, the second showing the first's content displaced by (dx, dy).
struct GreyPair {
  cv::Mat first;
  cv::Mat second;
};
GreyPair shiftedGreys(int dx, int dy) {
  const cv::Mat source = testing::texture(kSide + 40, kSide + 40, 5);
  return {grey(testing::shiftedWindow(source, 20, 20, kSide, kSide, 0.0f, 0.0f)),
          grey(testing::shiftedWindow(source, 20, 20, kSide, kSide, static_cast<float>(dx),
                                      static_cast<float>(dy)))};
}

cv::Mat searched(const GreyPair& pair, int hint, const cv::Mat& alpha0 = ones()) {
  cv::Mat flow = cv::Mat::zeros(kSide, kSide, CV_32FC2);
  initialSearch(pair.first, pair.second, alpha0, ones(), flow, hint);
  return flow;
}

// The share of interior pixels (away from the image border, where windows are cut) whose flow
// is exactly (dx, dy).
double shareOf(const cv::Mat& flow, float dx, float dy) {
  int hits = 0;
  int total = 0;
  for (int y = 12; y < kSide - 12; ++y) {
    for (int x = 12; x < kSide - 12; ++x, ++total) {
      hits += flow.at<cv::Vec2f>(y, x) == cv::Vec2f(dx, dy) ? 1 : 0;
    }
  }
  return static_cast<double>(hits) / total;
}

void expectWithin(const cv::Mat& flow, int minDx, int maxDx, int minDy, int maxDy) {
  for (int y = 0; y < flow.rows; ++y) {
    for (int x = 0; x < flow.cols; ++x) {
      const cv::Vec2f f = flow.at<cv::Vec2f>(y, x);
      ASSERT_TRUE(f[0] >= minDx && f[0] <= maxDx && f[1] >= minDy && f[1] <= maxDy)
          << "(" << x << ", " << y << ") has " << f[0] << ", " << f[1];
      ASSERT_EQ(f[0], std::round(f[0]));
      ASSERT_EQ(f[1], std::round(f[1]));
    }
  }
}

TEST(InitialSearch, EachHintFindsTheDisplacementOnlyInsideItsRange) {
  const struct {
    int hint, dx, dy;
  } cases[] = {{kHintRightward, 3, 1},
               {kHintDownward, -1, 4},
               {kHintLeftward, -4, -1},
               {kHintUpward, 1, -5}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "hint " << c.hint);
    const GreyPair pair = shiftedGreys(c.dx, c.dy);
    EXPECT_GT(shareOf(searched(pair, c.hint), c.dx, c.dy), 0.9);
  }
  // Hint 0 looks right only: a leftward displacement is out of its reach.
  const cv::Mat rightward = searched(shiftedGreys(-3, 0), kHintRightward);
  expectWithin(rightward, 0, 5, -1, 1);
  EXPECT_EQ(shareOf(rightward, -3, 0), 0.0);
  const cv::Mat upward = searched(shiftedGreys(0, 4), kHintUpward);
  expectWithin(upward, -1, 1, -5, 0);
}

TEST(InitialSearch, HintFourAndUnknownHintsLeaveZeroFlow) {
  const GreyPair pair = shiftedGreys(3, 0);
  for (int hint : {static_cast<int>(kHintNoSearch), 5, -1}) {
    EXPECT_EQ(cv::countNonZero(searched(pair, hint).reshape(1)), 0) << "hint " << hint;
  }
}

TEST(InitialSearch, MatchesBrightnessBeforeComparingPatches) {
  GreyPair pair = shiftedGreys(2, 0);
  const cv::Mat original = pair.second.clone();
  pair.second *= 1.6;
  EXPECT_NEAR(brightnessGain(pair.first, ones(), pair.second, ones()),
              brightnessGain(pair.first, ones(), original, ones()) / 1.6, 1e-4);
  EXPECT_GT(shareOf(searched(pair, kHintRightward), 2, 0), 0.9);
  // The caller's second image is not changed.
  EXPECT_EQ(cv::norm(pair.second, original * 1.6, cv::NORM_INF), 0.0);
}

TEST(InitialSearch, TiesKeepZeroAndPixelsBelowTheAlphaThresholdKeepZero) {
  GreyPair flat{cv::Mat(kSide, kSide, CV_32F, cv::Scalar(0.5f)),
                cv::Mat(kSide, kSide, CV_32F, cv::Scalar(0.5f))};
  // Every candidate costs 0: the earlier one, zero displacement, must stay.
  EXPECT_EQ(cv::countNonZero(searched(flat, kHintLeftward).reshape(1)), 0);

  const GreyPair pair = shiftedGreys(3, 0);
  cv::Mat alpha0 = ones();
  alpha0.colRange(0, kSide / 2).setTo(0.9f);  // not above 0.9
  const cv::Mat flow = searched(pair, kHintRightward, alpha0);
  EXPECT_EQ(cv::countNonZero(flow.colRange(0, kSide / 2).reshape(1)), 0);
  EXPECT_EQ(flow.at<cv::Vec2f>(20, 30), cv::Vec2f(3.0f, 0.0f));
}

TEST(PatchCost, SkipsOffsetsOutsideTheFirstImageAndClampsTheSecond) {
  const cv::Mat first(30, 30, CV_32F, cv::Scalar(1.0f));
  cv::Mat alpha(30, 30, CV_32F, cv::Scalar(1.0f));
  // At the corner only the 11 x 11 offsets inside count: D / S = 0.75 (not diluted by the rest).
  const cv::Mat quarter(30, 30, CV_32F, cv::Scalar(0.25f));
  EXPECT_FLOAT_EQ(patchCost(first, alpha, {0, 0}, quarter, alpha, {0, 0}), 0.75f);
  // Displacement (29, 29) makes it dearer by 1 + 0.2 |(29, 29)|.
  const float length = static_cast<float>(std::sqrt(2.0 * 29 * 29));
  EXPECT_FLOAT_EQ(patchCost(first, alpha, {0, 0}, quarter, alpha, {29, 29}),
                  (1.0f + 0.2f * length) * 121.0f * 0.75f / 121.0f);

  // The second image is read clamped: around column 29, offsets 0 to 10 all read column 29.
  const cv::Mat dark(30, 30, CV_32F, cv::Scalar(0.0f));
  cv::Mat lastColumnLit = dark.clone();
  lastColumnLit.col(29).setTo(1.0f);
  EXPECT_FLOAT_EQ(patchCost(dark, alpha, {15, 15}, lastColumnLit, alpha, {29, 15}),
                  (1.0f + 0.2f * 14.0f) * (11.0f * 21.0f) / 441.0f);
}

TEST(PatchCost, NoJointValidityGivesACostThatNeverWins) {
  const cv::Mat image(30, 30, CV_32F, cv::Scalar(0.5f));
  const cv::Mat valid(30, 30, CV_32F, cv::Scalar(1.0f));
  const cv::Mat empty = cv::Mat::zeros(30, 30, CV_32F);
  EXPECT_FALSE(std::isfinite(patchCost(image, valid, {10, 10}, image, empty, {10, 10})));
  EXPECT_FALSE(std::isfinite(brightnessGain(image, valid, image, empty)));
}

}  // namespace
}  // namespace velmora
