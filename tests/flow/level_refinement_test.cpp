// Propagation sweeps, gradient step and prior blend of one pyramid level.
#include "flow/level_refinement.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace velmora {
namespace {

constexpr int kWidth = 20;
constexpr int kHeight = 12;

// A level on which the cost has one clear minimum per pixel: the second image's horizontal
// gradient is the ramp 0.1 x, the first's is 0.1 (x + target), so fx = target matches best. Both
// alphas are 0 except at the pixels a test marks valid; the prior is zero.
SweepInputs rampLevel(float target) {
  SweepInputs level;
  level.gradient0x.create(kHeight, kWidth, CV_32F);
  level.gradient1x.create(kHeight, kWidth, CV_32F);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      level.gradient1x.at<float>(y, x) = 0.1f * x;
      level.gradient0x.at<float>(y, x) = 0.1f * (x + target);
    }
  }
  level.gradient0y = cv::Mat::zeros(kHeight, kWidth, CV_32F);
  level.gradient1y = cv::Mat::zeros(kHeight, kWidth, CV_32F);
  level.alpha0 = cv::Mat::zeros(kHeight, kWidth, CV_32F);
  level.alpha1 = cv::Mat::zeros(kHeight, kWidth, CV_32F);
  level.prior = cv::Mat::zeros(kHeight, kWidth, CV_32FC2);
  return level;
}

void markValid(SweepInputs& level, int x, int y) {
  level.alpha0.at<float>(y, x) = 1.0f;
  level.alpha1.at<float>(y, x) = 1.0f;
}

cv::Mat zeroFlow() {
  return cv::Mat::zeros(kHeight, kWidth, CV_32FC2);
}

float flowX(const cv::Mat& flow, int x, int y) {
  return flow.at<cv::Vec2f>(y, x)[0];
}

// The cost near the target falls by 0.1 per pixel of distance, so a pixel that took a candidate
// ends within a tenth of a pixel of it after the gradient step (half the slope, about 0.05).
TEST(PropagationSweeps, NarrowConsultsDistanceOneWideConsultsTwoToEight) {
  const int x = 10;
  const int y = 6;
  for (bool vertical : {false, true}) {
    SweepInputs level = rampLevel(3.0f);
    markValid(level, x, y);
    cv::Mat flow = zeroFlow();
    // A poorer candidate at distance 1, the best one at distance 2, a worse one at distance 3.
    const cv::Point near = vertical ? cv::Point(x, y - 1) : cv::Point(x - 1, y);
    const cv::Point two = vertical ? cv::Point(x, y - 2) : cv::Point(x - 2, y);
    flow.at<cv::Vec2f>(near) = cv::Vec2f(1.0f, 0.0f);
    flow.at<cv::Vec2f>(two) = cv::Vec2f(3.0f, 0.0f);

    cv::Mat narrow = flow.clone();
    forwardSweep(level, narrow, false);
    EXPECT_NEAR(flowX(narrow, x, y), 1.0f, 0.1f) << (vertical ? "vertical" : "horizontal");

    cv::Mat wide = flow.clone();
    forwardSweep(level, wide, true);
    EXPECT_NEAR(flowX(wide, x, y), 3.0f, 0.1f) << (vertical ? "vertical" : "horizontal");
  }
}

TEST(PropagationSweeps, WideReachesEightButNotTen) {
  for (int distance : {8, 10}) {
    SweepInputs level = rampLevel(3.0f);
    markValid(level, 10, 11);
    cv::Mat flow = zeroFlow();
    flow.at<cv::Vec2f>(11 - distance, 10) = cv::Vec2f(3.0f, 0.0f);
    forwardSweep(level, flow, true);
    EXPECT_EQ(flowX(flow, 10, 11) > 2.0f, distance == 8) << "distance " << distance;
  }
}

TEST(PropagationSweeps, ForwardNeverTakesColumnZeroOrRowZeroAtDistanceOne) {
  SweepInputs level = rampLevel(3.0f);
  markValid(level, 1, 5);
  markValid(level, 5, 1);
  cv::Mat flow = zeroFlow();
  flow.at<cv::Vec2f>(5, 0) = cv::Vec2f(3.0f, 0.0f);
  flow.at<cv::Vec2f>(0, 5) = cv::Vec2f(3.0f, 0.0f);
  forwardSweep(level, flow, false);
  // Both stay near zero: only the gradient step moved them.
  EXPECT_LT(flowX(flow, 1, 5), 0.5f);
  EXPECT_LT(flowX(flow, 5, 1), 0.5f);
}

TEST(PropagationSweeps, BackwardTakesTheLastColumnAndRowButNothingBeyond) {
  SweepInputs level = rampLevel(-3.0f);
  markValid(level, kWidth - 2, 5);   // may read column kWidth - 1
  markValid(level, 5, kHeight - 2);  // may read row kHeight - 1
  markValid(level, kWidth - 1, 8);   // has no right-hand neighbour
  cv::Mat flow = zeroFlow();
  flow.at<cv::Vec2f>(5, kWidth - 1) = cv::Vec2f(-3.0f, 0.0f);
  flow.at<cv::Vec2f>(kHeight - 1, 5) = cv::Vec2f(-3.0f, 0.0f);
  flow.at<cv::Vec2f>(9, kWidth - 1) = cv::Vec2f(-3.0f, 0.0f);  // below, for the vertical test
  backwardSweep(level, flow, false);
  EXPECT_NEAR(flowX(flow, kWidth - 2, 5), -3.0f, 0.1f);
  EXPECT_NEAR(flowX(flow, 5, kHeight - 2), -3.0f, 0.1f);
  EXPECT_NEAR(flowX(flow, kWidth - 1, 8), -3.0f, 0.1f);  // from the row below it
  // The forward sweep looks the other way and finds nothing.
  cv::Mat forward = zeroFlow();
  forward.at<cv::Vec2f>(5, kWidth - 1) = cv::Vec2f(-3.0f, 0.0f);
  forwardSweep(level, forward, false);
  EXPECT_GT(flowX(forward, kWidth - 2, 5), -0.5f);
}

TEST(PropagationSweeps, CandidateOfEqualCostDoesNotReplace) {
  SweepInputs level = rampLevel(3.0f);
  markValid(level, 10, 6);
  cv::Mat flow = zeroFlow();
  // (3, 1) and (3, -1) cost the same: no vertical gradient, symmetric prior and length terms.
  flow.at<cv::Vec2f>(6, 10) = cv::Vec2f(3.0f, 1.0f);
  flow.at<cv::Vec2f>(6, 9) = cv::Vec2f(3.0f, -1.0f);
  ASSERT_EQ(flowCost(level, 10, 6, 3.0f, 1.0f), flowCost(level, 10, 6, 3.0f, -1.0f));
  forwardSweep(level, flow, false);
  EXPECT_GT(flow.at<cv::Vec2f>(6, 10)[1], 0.5f);
}

TEST(PropagationSweeps, UpdatedValuesPropagateAlongTheSweep) {
  SweepInputs level = rampLevel(3.0f);
  for (int x = 3; x <= 12; ++x) markValid(level, x, 4);
  cv::Mat flow = zeroFlow();
  flow.at<cv::Vec2f>(4, 2) = cv::Vec2f(3.0f, 0.0f);
  forwardSweep(level, flow, false);
  // Each pixel took its left neighbour's value as the sweep had just left it.
  for (int x = 3; x <= 12; ++x) EXPECT_NEAR(flowX(flow, x, 4), 3.0f, 0.1f) << "x " << x;
}

TEST(PropagationSweeps, LeavePixelsUntouchedUnlessBothAlphasExceed09) {
  SweepInputs level = rampLevel(3.0f);
  level.alpha0.setTo(1.0f);
  level.alpha1.setTo(0.9f);  // not above 0.9
  level.alpha1.at<float>(2, 2) = 0.95f;
  cv::Mat flow(kHeight, kWidth, CV_32FC2, cv::Scalar(0.25f, -0.5f));
  const cv::Mat before = flow.clone();
  forwardSweep(level, flow, true);
  backwardSweep(level, flow, true);
  cv::Mat changed;
  cv::compare(flow.reshape(1), before.reshape(1), changed, cv::CMP_NE);
  EXPECT_EQ(cv::countNonZero(changed), 2);  // both components of pixel (2, 2)
  EXPECT_NE(flowX(flow, 2, 2), 0.25f);
}

TEST(PropagationSweeps, GradientStepMovesHalfTheNumericSlopeDownhill) {
  SweepInputs level = rampLevel(3.0f);
  markValid(level, 10, 6);
  cv::Mat flow = zeroFlow();
  flow.at<cv::Vec2f>(6, 10) = cv::Vec2f(1.0f, 0.0f);
  const float base = flowCost(level, 10, 6, 1.0f, 0.0f);
  const float slopeX = (flowCost(level, 10, 6, 1.001f, 0.0f) - base) / 0.001f;
  const float slopeY = (flowCost(level, 10, 6, 1.0f, 0.001f) - base) / 0.001f;
  forwardSweep(level, flow, false);
  // Downhill in x (towards 3) by half the slope; y moves by the slope of |fy| terms only.
  EXPECT_NEAR(flowX(flow, 10, 6), 1.0f - 0.5f * slopeX, 1e-4f);
  EXPECT_NEAR(flow.at<cv::Vec2f>(6, 10)[1], -0.5f * slopeY, 1e-4f);
  EXPECT_GT(flowX(flow, 10, 6), 1.02f);
}

TEST(FlowCost, WeighsDataPriorAndCrossedDisplacementTerms) {
  SweepInputs level = rampLevel(3.0f);
  level.prior.setTo(cv::Scalar(1.0f, 2.0f));
  // Data term 0 at fx = 3; |f - P| = |(2, -2)|; |fy| / width and |fx| / height are crossed.
  const float expected = 0.012f * std::sqrt(8.0f) + 0.02f * 0.0f / kWidth + 0.02f * 3.0f / kHeight;
  EXPECT_NEAR(flowCost(level, 4, 4, 3.0f, 0.0f), expected, 1e-6f);
  const float vertical = flowCost(level, 4, 4, 3.0f, 1.0f) - 0.012f * std::sqrt(5.0f);
  EXPECT_NEAR(vertical, 0.02f / kWidth + 0.02f * 3.0f / kHeight, 1e-6f);
}

TEST(PriorBlend, InvalidPixelsTakeTheBlurredFieldValidOnesKeepTheirs) {
  cv::Mat flow(40, 40, CV_32FC2, cv::Scalar(1.0f, -1.0f));
  flow(cv::Rect(15, 15, 10, 10)).setTo(cv::Scalar(9.0f, 4.0f));
  cv::Mat alpha0(40, 40, CV_32F, cv::Scalar(1.0f));
  cv::Mat alpha1(40, 40, CV_32F, cv::Scalar(1.0f));
  alpha0(cv::Rect(15, 15, 10, 10)).setTo(0.0f);  // invalid in the first image
  alpha1.at<float>(5, 5) = 0.5f;                 // partly valid in the second
  alpha0.at<float>(5, 5) = 0.5f;                 // and in the first: a = 0.25
  cv::Mat blurred;
  cv::GaussianBlur(flow, blurred, cv::Size(15, 15), 8.0, 8.0, cv::BORDER_REFLECT_101);
  const cv::Mat input = flow.clone();

  blendWithPrior(flow, alpha0, alpha1);

  for (cv::Point p : {cv::Point(15, 15), cv::Point(20, 20), cv::Point(24, 17)}) {
    EXPECT_NEAR(flow.at<cv::Vec2f>(p)[0], blurred.at<cv::Vec2f>(p)[0], 1e-4f);
    EXPECT_NEAR(flow.at<cv::Vec2f>(p)[1], blurred.at<cv::Vec2f>(p)[1], 1e-4f);
  }
  EXPECT_LT(flow.at<cv::Vec2f>(20, 20)[0], 9.0f);
  const cv::Vec2f mixed = 0.25f * input.at<cv::Vec2f>(5, 5) + 0.75f * blurred.at<cv::Vec2f>(5, 5);
  EXPECT_NEAR(flow.at<cv::Vec2f>(5, 5)[0], mixed[0], 1e-4f);
  EXPECT_EQ(flow.at<cv::Vec2f>(35, 35), input.at<cv::Vec2f>(35, 35));
  EXPECT_EQ(flow.at<cv::Vec2f>(14, 20), input.at<cv::Vec2f>(14, 20));
}

}  // namespace
}  // namespace velmora
