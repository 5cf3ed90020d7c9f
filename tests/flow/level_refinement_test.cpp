// Propagation sweeps and prior blend of one pyramid level.
#include "flow/level_refinement.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace velmora {
namespace {

constexpr int kWidth = 20;
constexpr int kHeight = 12;

// A level where flow (target, 0) matches best everywhere: the second image's horizontal gradient
// is the ramp 0.1 x, the first's 0.1 (x + target); the cost falls by 0.1 per pixel towards the
// target, so a pixel that took a candidate ends within 0.1 of it after the gradient step. Only
// the pixels in `valid` pass the alpha test; the prior is zero.
SweepInputs rampLevel(float target, std::initializer_list<cv::Point> valid) {
  SweepInputs level;
  level.gradient0x.create(kHeight, kWidth, CV_32F);
  level.gradient1x.create(kHeight, kWidth, CV_32F);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      level.gradient1x.at<float>(y, x) = 0.1f * x;
      level.gradient0x.at<float>(y, x) = 0.1f * (x + target);
    }
  }
  level.gradient0y = level.gradient1y = cv::Mat::zeros(kHeight, kWidth, CV_32F);
  level.alpha0 = cv::Mat::zeros(kHeight, kWidth, CV_32F);
  level.alpha1 = cv::Mat::zeros(kHeight, kWidth, CV_32F);
  for (const cv::Point& p : valid) level.alpha0.at<float>(p) = level.alpha1.at<float>(p) = 1.0f;
  level.prior = cv::Mat::zeros(kHeight, kWidth, CV_32FC2);
  return level;
}

// A zero flow with the given values placed.
cv::Mat flowWith(std::initializer_list<std::pair<cv::Point, cv::Vec2f>> values) {
  cv::Mat flow = cv::Mat::zeros(kHeight, kWidth, CV_32FC2);
  for (const auto& [p, f] : values) flow.at<cv::Vec2f>(p) = f;
  return flow;
}

float flowX(const cv::Mat& flow, cv::Point p) {
  return flow.at<cv::Vec2f>(p)[0];
}

TEST(PropagationSweeps, NarrowConsultsDistanceOneWideTwoToEight) {
  const cv::Point p(10, 10);
  for (bool vertical : {false, true}) {
    const auto at = [&](int d) { return vertical ? p - cv::Point(0, d) : p - cv::Point(d, 0); };
    const SweepInputs level = rampLevel(3.0f, {p});
    // A poorer candidate at distance 1, the best at distance 2.
    const cv::Mat flow = flowWith({{at(1), {1, 0}}, {at(2), {3, 0}}});
    cv::Mat narrow = flow.clone(), wide = flow.clone();
    forwardSweep(level, narrow, false);
    forwardSweep(level, wide, true);
    EXPECT_NEAR(flowX(narrow, p), 1.0f, 0.1f) << "vertical " << vertical;
    EXPECT_NEAR(flowX(wide, p), 3.0f, 0.1f) << "vertical " << vertical;
    // Wide reaches 8 but not 10.
    for (int d : {8, 10}) {
      cv::Mat far = flowWith({{at(d), {3, 0}}});
      forwardSweep(level, far, true);
      EXPECT_EQ(flowX(far, p) > 2.0f, d == 8) << "distance " << d;
    }
  }
}

TEST(PropagationSweeps, ForwardSkipsColumnAndRowZeroBackwardReachesTheLastOnes) {
  // Forward, distance 1: x > 1 and y > 1 are required, so (1, 5) and (5, 1) find nothing.
  cv::Mat forward = flowWith({{{0, 5}, {3, 0}}, {{5, 0}, {3, 0}}});
  forwardSweep(rampLevel(3.0f, {{1, 5}, {5, 1}}), forward, false);
  EXPECT_LT(flowX(forward, {1, 5}), 0.5f);
  EXPECT_LT(flowX(forward, {5, 1}), 0.5f);
  // Backward: x < W - 1 and y < H - 1 suffice, so the last column and row are read.
  const cv::Point right(kWidth - 2, 5), bottom(5, kHeight - 2);
  cv::Mat backward =
      flowWith({{right + cv::Point(1, 0), {-3, 0}}, {bottom + cv::Point(0, 1), {-3, 0}}});
  backwardSweep(rampLevel(-3.0f, {right, bottom}), backward, false);
  EXPECT_NEAR(flowX(backward, right), -3.0f, 0.1f);
  EXPECT_NEAR(flowX(backward, bottom), -3.0f, 0.1f);
}

TEST(PropagationSweeps, UpdatedValuesPropagateAndEqualCostsDoNotReplace) {
  SweepInputs level = rampLevel(3.0f, {});
  for (int x = 3; x <= 12; ++x) level.alpha0.at<float>(4, x) = level.alpha1.at<float>(4, x) = 1;
  // (3, 1) and (3, -1) cost the same (no vertical gradient, symmetric terms): at (10, 7) the
  // own flow stays against the equal candidate to its left.
  level.alpha0.at<float>(7, 10) = level.alpha1.at<float>(7, 10) = 1;
  cv::Mat flow = flowWith({{{2, 4}, {3, 0}}, {{10, 7}, {3, 1}}, {{9, 7}, {3, -1}}});
  forwardSweep(level, flow, false);
  for (int x = 3; x <= 12; ++x) EXPECT_NEAR(flowX(flow, {x, 4}), 3.0f, 0.1f) << "x " << x;
  EXPECT_GT(flow.at<cv::Vec2f>(7, 10)[1], 0.5f);
}

TEST(PropagationSweeps, LeavePixelsUntouchedUnlessBothAlphasExceed09) {
  SweepInputs level = rampLevel(3.0f, {});
  level.alpha0.setTo(1.0f);
  level.alpha1.setTo(0.9f);
  level.alpha1.at<float>(2, 2) = 0.95f;
  cv::Mat flow(kHeight, kWidth, CV_32FC2, cv::Scalar(0.25f, -0.5f));
  const cv::Mat before = flow.clone();
  forwardSweep(level, flow, true);
  backwardSweep(level, flow, true);
  cv::Mat changed;
  cv::compare(flow.reshape(1), before.reshape(1), changed, cv::CMP_NE);
  EXPECT_EQ(cv::countNonZero(changed), 2);  // both components of (2, 2) only
  EXPECT_GT(flowX(flow, {2, 2}), 0.25f);
}

TEST(PriorBlend, InvalidPixelsTakeTheBlurredFieldValidOnesKeepTheirs) {
  cv::Mat flow(40, 40, CV_32FC2, cv::Scalar(1.0f, -1.0f));
  const cv::Rect hole(15, 15, 10, 10);
  flow(hole).setTo(cv::Scalar(9.0f, 4.0f));
  cv::Mat alpha0(40, 40, CV_32F, cv::Scalar(1.0f)), alpha1 = alpha0.clone();
  alpha0(hole).setTo(0.0f);
  alpha0.at<float>(5, 5) = alpha1.at<float>(5, 5) = 0.5f;  // jointly a quarter valid
  cv::Mat blurred;
  cv::GaussianBlur(flow, blurred, cv::Size(15, 15), 8.0, 8.0, cv::BORDER_REFLECT_101);
  const cv::Mat input = flow.clone();
  blendWithPrior(flow, alpha0, alpha1);
  for (cv::Point p : {cv::Point(15, 15), cv::Point(20, 20), cv::Point(24, 17)}) {
    EXPECT_LT(cv::norm(flow.at<cv::Vec2f>(p) - blurred.at<cv::Vec2f>(p)), 1e-4);
  }
  const cv::Vec2f mixed = 0.25f * input.at<cv::Vec2f>(5, 5) + 0.75f * blurred.at<cv::Vec2f>(5, 5);
  EXPECT_LT(cv::norm(flow.at<cv::Vec2f>(5, 5) - mixed), 1e-4);
  EXPECT_EQ(flow.at<cv::Vec2f>(14, 20), input.at<cv::Vec2f>(14, 20));
}

}  // namespace
}  // namespace velmora
