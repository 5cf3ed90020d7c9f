// The flow job end to end, and the pyramid and bilinear sample it is built on.
#include "flow/optical_flow.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "api/status.h"
#include "flow/bilinear_sample.h"
#include "flow/flow_pyramid.h"
#include "flow/flow_test_images.h"

namespace velmora {
namespace {

constexpr int kWidth = 192;
constexpr int kHeight = 128;

// Two views of one texture, the second's content displaced by (dx, dy): the true flow.
std::pair<cv::Mat, cv::Mat> shiftedPair(float dx, float dy) {
  const cv::Mat source = testing::texture(kWidth + 80, kHeight + 80, 11);
  return {testing::withAlpha(testing::shiftedWindow(source, 40, 40, kWidth, kHeight, 0, 0)),
          testing::withAlpha(testing::shiftedWindow(source, 40, 40, kWidth, kHeight, dx, dy))};
}

// Mean and largest absolute error per component of `flow` over `region`.
std::pair<cv::Scalar, cv::Scalar> errorOver(const cv::Mat& flow, const cv::Rect& region, float dx,
                                            float dy) {
  cv::Mat error = cv::abs(flow(region) - cv::Scalar(dx, dy));
  std::vector<cv::Mat> components;
  cv::split(error, components);
  cv::Scalar largest;
  for (int c = 0; c < 2; ++c) cv::minMaxLoc(components[c], nullptr, &largest[c]);
  return {cv::mean(error), largest};
}

TEST(FlowJob, IdenticalImagesGiveNearZeroFlowOfFullSize) {
  const cv::Mat image = shiftedPair(0, 0).first;
  for (int hint : {0, 2, 4}) {
    cv::Mat flow;
    computeOpticalFlow(image, image, flow, hint, true);
    ASSERT_EQ(flow.type(), CV_32FC2);
    ASSERT_EQ(flow.size(), image.size());
    // At the exact match the cost has a kink; the one-sided numeric derivative of the gradient
    // step pushes each visit off by half the local slope: hundredths of a pixel on smooth
    // texture, up to about a fifth at the sharpest edges.
    const auto [mean, largest] = errorOver(flow, cv::Rect(0, 0, kWidth, kHeight), 0, 0);
    EXPECT_LT(mean[0] + mean[1], 0.05) << "hint " << hint;
    EXPECT_LT(std::max(largest[0], largest[1]), 0.25) << "hint " << hint;
  }
}

// The flow is estimated at half resolution, every visit takes a single damped gradient step (half
// the cost slope) and is pulled towards the smooth prior and, weakly, towards zero, so a
// displacement is approached from below and reached to a few tenths of a pixel. The bounds (0.25
// px mean, 0.6 px anywhere, per component) are far tighter than the faults they catch: a lost
// factor 2 to full resolution or 1 / 0.88 per level is 0.7 px or more here, swapped components
// 1 px, a wrong sign 3 px.
TEST(FlowJob, RecoversWholeAndSubPixelShiftsWhereBothImagesAreValid) {
  for (const cv::Point2f shift : {cv::Point2f(3, 0), cv::Point2f(1.5f, 0.5f), cv::Point2f(-2, 1)}) {
    auto [first, second] = shiftedPair(shift.x, shift.y);
    // As in the overlap bands: only the middle half is valid in both.
    first.colRange(3 * kWidth / 4, kWidth).setTo(cv::Scalar::all(0));
    second.colRange(0, kWidth / 4).setTo(cv::Scalar::all(0));
    cv::Mat flow;
    computeOpticalFlow(first, second, flow, kHintNoSearch, true);
    const cv::Rect bothValid(kWidth / 4 + 8, 8, kWidth / 2 - 16, kHeight - 16);
    const auto [mean, largest] = errorOver(flow, bothValid, shift.x, shift.y);
    EXPECT_LT(std::max(mean[0], mean[1]), 0.25) << shift;
    EXPECT_LT(std::max(largest[0], largest[1]), 0.6) << shift;
  }
}

TEST(FlowJob, InvalidHoleTakesTheSmoothFieldOfItsSurroundings) {
  auto [first, second] = shiftedPair(3, 0);
  const cv::Rect hole(80, 50, 24, 24);
  first(hole).setTo(cv::Scalar::all(0));
  cv::Mat flow;
  computeOpticalFlow(first, second, flow, kHintNoSearch, true);
  cv::Mat ring = cv::Mat::zeros(flow.size(), CV_8U);
  ring(cv::Rect(hole.x - 12, hole.y - 12, hole.width + 24, hole.height + 24)).setTo(1);
  ring(hole).setTo(0);
  const cv::Scalar around = cv::mean(flow, ring);
  const cv::Scalar inside = cv::mean(flow(cv::Rect(hole.x + 6, hole.y + 6, 12, 12)));
  // Nothing in the hole is ever matched: without the prior blend it would keep the coarsest
  // level's zero start.
  EXPECT_NEAR(inside[0], around[0], 0.5);
  EXPECT_NEAR(inside[1], around[1], 0.2);
  EXPECT_GT(inside[0], 2.0);
}

TEST(FlowJob, RejectsImagesThatDoNotFit) {
  const cv::Mat image = shiftedPair(0, 0).first;
  cv::Mat flow, bgr;
  EXPECT_THROW(computeOpticalFlow(image, image.colRange(0, 100).clone(), flow, 4, true), Failure);
  cv::cvtColor(image, bgr, cv::COLOR_BGRA2BGR);
  EXPECT_THROW(computeOpticalFlow(bgr, bgr, flow, 4, true), Failure);
  const cv::Mat tiny(3, 40, CV_8UC4, cv::Scalar::all(255));
  EXPECT_THROW(computeOpticalFlow(tiny, tiny, flow, 4, true), Failure);
}

TEST(FlowPyramid, LevelsShrinkBy088RoundedStopBelow25PixelsAndAt100Levels) {
  const std::vector<cv::Size> expected{{64, 48}, {56, 42}, {49, 37}, {43, 33}, {38, 29}, {33, 26}};
  EXPECT_EQ(pyramidLevelSizes(cv::Size(64, 48)), expected);
  EXPECT_EQ(pyramidLevelSizes(cv::Size(2000, 30)).size(), 2u);  // 1760 x 26, then 23 rows
  EXPECT_EQ(pyramidLevelSizes(cv::Size(24, 300)).size(), 1u);   // level 0 is kept as it is
  EXPECT_EQ(pyramidLevelSizes(cv::Size(1 << 30, 1 << 30)).size(), kPyramidMaximumLevels);

  cv::Mat image(48, 64, CV_32F);
  cv::randu(image, 0.0f, 1.0f);
  const std::vector<cv::Mat> levels = buildPyramid(image);
  ASSERT_EQ(levels.size(), 6u);
  cv::Mat expectedLevel;
  cv::resize(levels[2], expectedLevel, cv::Size(43, 33), 0, 0, cv::INTER_LINEAR);
  EXPECT_EQ(cv::norm(levels[3], expectedLevel, cv::NORM_INF), 0.0);
}

TEST(BilinearSample, InterpolatesInsideAndReadsTheBorderPairOutside) {
  // Columns 0, 1, 2, 3, 10; each row adds 100.
  cv::Mat image =
      (cv::Mat_<float>(3, 5) << 0, 1, 2, 3, 10, 100, 101, 102, 103, 110, 200, 201, 202, 203, 210);
  const auto sample = [&](float x, float y) {
    return sampleBilinear(image.ptr<float>(), 5, 5, 3, x, y);
  };
  EXPECT_FLOAT_EQ(sample(1.5f, 0.25f), 26.5f);
  // Clamped to [0, 3] x [0, 1]: the last column and row are only the second of a pair, so
  // positions beyond them read column 3 and row 1.
  EXPECT_FLOAT_EQ(sample(4.0f, 0.0f), 3.0f);
  EXPECT_FLOAT_EQ(sample(40.0f, 9.0f), 103.0f);
  EXPECT_FLOAT_EQ(sample(-3.0f, -1.0f), 0.0f);
  EXPECT_FLOAT_EQ(sample(2.5f, 1.5f), 102.5f);
}

}  // namespace
}  // namespace velmora
