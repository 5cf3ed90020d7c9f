// The coarsest level's patch search and its patch cost.
#include "flow/initial_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "flow/flow_test_images.h"

namespace velmora {
namespace {

constexpr int kSide = 48;

cv::Mat ones(int side = kSide) {
  return cv::Mat(side, side, CV_32F, cv::Scalar(1.0f));
}

// Grey views of one texture, the second showing the first's content displaced by (dx, dy).
std::pair<cv::Mat, cv::Mat> shiftedGreys(int dx, int dy) {
  const cv::Mat source = testing::texture(kSide + 40, kSide + 40, 5);
  cv::Mat views[2];
  for (int i = 0; i < 2; ++i) {
    cv::Mat grey8;
    cv::cvtColor(testing::shiftedWindow(source, 20, 20, kSide, kSide, i * dx, i * dy), grey8,
                 cv::COLOR_BGR2GRAY);
    grey8.convertTo(views[i], CV_32F, 1.0 / 255.0);
  }
  return {views[0], views[1]};
}

cv::Mat searched(const std::pair<cv::Mat, cv::Mat>& greys, int hint,
                 const cv::Mat& alpha0 = ones()) {
  cv::Mat flow = cv::Mat::zeros(kSide, kSide, CV_32FC2);
  initialSearch(greys.first, greys.second, alpha0, ones(), flow, hint);
  return flow;
}

// The share of pixels away from the border (where the windows are cut) with flow (dx, dy).
double shareOf(const cv::Mat& flow, float dx, float dy) {
  const cv::Mat inner = flow(cv::Rect(12, 12, kSide - 24, kSide - 24));
  int hits = 0;
  inner.forEach<cv::Vec2f>([&](const cv::Vec2f& f, const int*) { hits += f == cv::Vec2f(dx, dy); });
  return static_cast<double>(hits) / inner.total();
}

TEST(InitialSearch, EachHintFindsTheDisplacementOnlyInsideItsRange) {
  const struct { int hint, dx, dy; } found[] = {{0, 3, 1}, {1, -1, 4}, {2, -4, -1}, {3, 1, -5}};
  for (const auto& c : found) {
    EXPECT_GT(shareOf(searched(shiftedGreys(c.dx, c.dy), c.hint), c.dx, c.dy), 0.9) << c.hint;
  }
  // Out of range: every stored flow is a whole displacement of the hint's range.
  const struct {
    int hint, dx, dy;
    cv::Rect range;  // of (dx, dy)
  } missed[] = {{0, -3, 0, {0, -1, 6, 3}}, {3, 0, 4, {-1, -5, 3, 6}}};
  for (const auto& c : missed) {
    searched(shiftedGreys(c.dx, c.dy), c.hint).forEach<cv::Vec2f>([&](cv::Vec2f& f, const int*) {
      ASSERT_TRUE(f[0] == std::round(f[0]) && f[1] == std::round(f[1]) &&
                  c.range.contains(cv::Point(static_cast<int>(f[0]), static_cast<int>(f[1]))))
          << "hint " << c.hint << ": " << f;
    });
  }
}

TEST(InitialSearch, HintFourAndUnknownHintsLeaveZeroFlow) {
  for (int hint : {4, 5, -1}) {
    EXPECT_EQ(cv::countNonZero(searched(shiftedGreys(3, 0), hint).reshape(1)), 0) << hint;
  }
}

TEST(InitialSearch, MatchesBrightnessAndKeepsZeroOnTiesAndBelowTheAlphaThreshold) {
  auto greys = shiftedGreys(2, 0);
  greys.second *= 1.6;
  EXPECT_GT(shareOf(searched(greys, 0), 2, 0), 0.9);
  // Flat images: every candidate costs 0, and the first, zero displacement, stays.
  const cv::Mat flat(kSide, kSide, CV_32F, cv::Scalar(0.5f));
  EXPECT_EQ(cv::countNonZero(searched({flat, flat}, 2).reshape(1)), 0);
  cv::Mat alpha0 = ones();
  alpha0.colRange(0, kSide / 2).setTo(0.9f);  // not above 0.9
  const cv::Mat flow = searched(shiftedGreys(3, 0), 0, alpha0);
  EXPECT_EQ(cv::countNonZero(flow.colRange(0, kSide / 2).reshape(1)), 0);
  EXPECT_EQ(flow.at<cv::Vec2f>(20, 30), cv::Vec2f(3, 0));
}

TEST(PatchCost, SkipsOffsetsOutsideTheFirstImageClampsTheSecondAndNeedsJointValidity) {
  const cv::Mat alpha = ones(30);
  const cv::Mat first = ones(30);
  const cv::Mat quarter(30, 30, CV_32F, cv::Scalar(0.25f));
  // At the corner only the 11 x 11 offsets inside count: D / S = 0.75, undiluted.
  EXPECT_FLOAT_EQ(patchCost(first, alpha, {0, 0}, quarter, alpha, {0, 0}), 0.75f);
  // Displacement (29, 29) is dearer by 1 + 0.2 |(29, 29)|.
  const float length = static_cast<float>(std::sqrt(2.0 * 29 * 29));
  EXPECT_FLOAT_EQ(patchCost(first, alpha, {0, 0}, quarter, alpha, {29, 29}),
                  (1.0f + 0.2f * length) * 0.75f);
  // Around column 29 of the second image, offsets 0 to 10 all read column 29.
  const cv::Mat dark = cv::Mat::zeros(30, 30, CV_32F);
  cv::Mat lastColumnLit = dark.clone();
  lastColumnLit.col(29).setTo(1.0f);
  EXPECT_FLOAT_EQ(patchCost(dark, alpha, {15, 15}, lastColumnLit, alpha, {29, 15}),
                  (1.0f + 0.2f * 14.0f) * (11.0f * 21.0f) / 441.0f);
  EXPECT_FALSE(std::isfinite(patchCost(dark, alpha, {15, 15}, dark, dark, {15, 15})));
}

}  // namespace
}  // namespace velmora
