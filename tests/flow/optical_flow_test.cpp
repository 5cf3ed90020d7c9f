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

using testing::shiftedWindow;
using testing::texture;
using testing::withAlpha;

constexpr int kWidth = 192;
constexpr int kHeight = 128;
constexpr int kMargin = 40;

struct FlowPair {
  cv::Mat first;
  cv::Mat second;
};

// Two views of one texture, the second displaced by (shiftX, shiftY): the true flow is that
// displacement everywhere.
FlowPair shiftedPair(float shiftX, float shiftY, unsigned seed = 11) {
  const cv::Mat source = texture(kWidth + 2 * kMargin, kHeight + 2 * kMargin, seed);
  return {withAlpha(shiftedWindow(source, kMargin, kMargin, kWidth, kHeight, 0.0f, 0.0f)),
          withAlpha(shiftedWindow(source, kMargin, kMargin, kWidth, kHeight, shiftX, shiftY))};
}

struct FlowError {
  cv::Scalar mean;       // mean flow per component
  cv::Scalar meanError;  // mean absolute error per component
  double maxError;       // largest absolute error of either component
};

FlowError errorOver(const cv::Mat& flow, const cv::Rect& region, float shiftX, float shiftY) {
  std::vector<cv::Mat> components;
  cv::split(flow(region), components);
  const cv::Mat errorX = cv::abs(components[0] - shiftX);
  const cv::Mat errorY = cv::abs(components[1] - shiftY);
  double maxX = 0.0;
  double maxY = 0.0;
  cv::minMaxLoc(errorX, nullptr, &maxX);
  cv::minMaxLoc(errorY, nullptr, &maxY);
  return {cv::mean(flow(region)), cv::Scalar(cv::mean(errorX)[0], cv::mean(errorY)[0]),
          std::max(maxX, maxY)};
}

TEST(FlowJob, IdenticalImagesGiveNearZeroFlowOfFullSize) {
  const FlowPair pair = shiftedPair(0.0f, 0.0f);
  for (int hint : {0, 2, 4}) {
    cv::Mat flow;
    computeOpticalFlow(pair.first, pair.first, flow, hint, true);
    ASSERT_EQ(flow.type(), CV_32FC2);
    ASSERT_EQ(flow.size(), pair.first.size());
    // At the exact match the cost has a kink; the one-sided numeric derivative of the gradient
    // step then pushes each visit off by half the local slope: a few hundredths of a pixel on
    // smooth texture, up to about a fifth at the sharpest edges.
    const FlowError error = errorOver(flow, cv::Rect(0, 0, kWidth, kHeight), 0.0f, 0.0f);
    EXPECT_LT(error.maxError, 0.25) << "hint " << hint;
    EXPECT_LT(error.meanError[0] + error.meanError[1], 0.05) << "hint " << hint;
  }
}

// The flow is estimated at half resolution, every visit takes a single damped gradient step (half
// the cost slope) and is pulled towards the smooth prior and, weakly, towards zero, so a
// displacement is approached from below and is reached to a few tenths of a pixel. The bounds
// below (0.25 px mean, 0.6 px anywhere, per component) are far tighter than the faults they are
// meant to catch: a lost factor 2 from half to full resolution or a lost 1 / 0.88 per level is
// 0.7 px or more here, swapped components 1 px, a wrong sign 3 px.
TEST(FlowJob, RecoversWholeAndSubPixelShiftsWhereBothImagesAreValid) {
  const struct { float x, y; } shifts[] = {{3.0f, 0.0f}, {1.5f, 0.5f}, {-2.0f, 1.0f}};
  for (const auto& shift : shifts) {
    FlowPair pair = shiftedPair(shift.x, shift.y);
    // Like the overlap bands: the first image is empty in its right quarter, the second in its
    // left quarter; only the middle half is valid in both.
    pair.first.colRange(3 * kWidth / 4, kWidth).setTo(cv::Scalar::all(0));
    pair.second.colRange(0, kWidth / 4).setTo(cv::Scalar::all(0));
    cv::Mat flow;
    computeOpticalFlow(pair.first, pair.second, flow, kHintNoSearch, true);
    const cv::Rect bothValid(kWidth / 4 + 8, 8, kWidth / 2 - 16, kHeight - 16);
    const FlowError error = errorOver(flow, bothValid, shift.x, shift.y);
    SCOPED_TRACE(::testing::Message() << "shift " << shift.x << ", " << shift.y << ": mean flow "
                                      << error.mean[0] << ", " << error.mean[1]);
    EXPECT_LT(error.meanError[0], 0.25);
    EXPECT_LT(error.meanError[1], 0.25);
    EXPECT_LT(error.maxError, 0.6);
  }
}

TEST(FlowJob, InvalidHoleTakesTheSmoothFieldOfItsSurroundings) {
  FlowPair pair = shiftedPair(3.0f, 0.0f);
  const cv::Rect hole(80, 50, 24, 24);
  pair.first(hole).setTo(cv::Scalar::all(0));
  cv::Mat flow;
  computeOpticalFlow(pair.first, pair.second, flow, kHintNoSearch, true);

  const cv::Scalar inside = cv::mean(flow(cv::Rect(hole.x + 6, hole.y + 6, 12, 12)));
  cv::Mat ring = cv::Mat::zeros(flow.size(), CV_8U);
  ring(cv::Rect(hole.x - 12, hole.y - 12, hole.width + 24, hole.height + 24)).setTo(1);
  ring(hole).setTo(0);
  const cv::Scalar around = cv::mean(flow, ring);
  // No pixel of the hole is ever matched; without the prior blend it would keep what the
  // coarsest level started from (zero).
  EXPECT_NEAR(inside[0], around[0], 0.5);
  EXPECT_NEAR(inside[1], around[1], 0.2);
  EXPECT_GT(inside[0], 2.0);
}

TEST(FlowJob, RejectsImagesThatDoNotFit) {
  const FlowPair pair = shiftedPair(0.0f, 0.0f);
  cv::Mat flow;
  EXPECT_THROW(computeOpticalFlow(pair.first, pair.second.colRange(0, 100).clone(), flow, 4, true),
               Failure);
  cv::Mat bgr;
  cv::cvtColor(pair.first, bgr, cv::COLOR_BGRA2BGR);
  EXPECT_THROW(computeOpticalFlow(bgr, bgr, flow, 4, true), Failure);
  const cv::Mat tiny(3, 40, CV_8UC4, cv::Scalar::all(255));
  EXPECT_THROW(computeOpticalFlow(tiny, tiny, flow, 4, true), Failure);
}

TEST(FlowPyramid, LevelsShrinkBy088RoundedAndStopBelow25Pixels) {
  const std::vector<cv::Size> expected{{64, 48}, {56, 42}, {49, 37}, {43, 33}, {38, 29}, {33, 26}};
  EXPECT_EQ(pyramidLevelSizes(cv::Size(64, 48)), expected);
  // Whichever side drops below 25 first ends the pyramid.
  const std::vector<cv::Size> wide = pyramidLevelSizes(cv::Size(2000, 30));
  ASSERT_EQ(wide.size(), 2u);
  EXPECT_EQ(wide[1], cv::Size(1760, 26));
}

TEST(FlowPyramid, SmallBaseGivesOneLevelAndHugeBaseStopsAt100Levels) {
  EXPECT_EQ(pyramidLevelSizes(cv::Size(24, 300)).size(), 1u);
  EXPECT_EQ(pyramidLevelSizes(cv::Size(300, 10)).size(), 1u);
  const std::vector<cv::Size> huge = pyramidLevelSizes(cv::Size(1 << 30, 1 << 30));
  EXPECT_EQ(huge.size(), kPyramidMaximumLevels);
  for (std::size_t i = 1; i < huge.size(); ++i) {
    EXPECT_GE(std::min(huge[i].width, huge[i].height), kPyramidMinimumSide);
  }
}

TEST(FlowPyramid, BuildsLinearlyResizedLevelsOverTheImage) {
  cv::Mat image(48, 64, CV_32F);
  cv::randu(image, 0.0f, 1.0f);
  const std::vector<cv::Mat> levels = buildPyramid(image);
  ASSERT_EQ(levels.size(), 6u);
  EXPECT_EQ(levels[0].data, image.data);
  cv::Mat expected;
  cv::resize(levels[2], expected, cv::Size(43, 33), 0, 0, cv::INTER_LINEAR);
  EXPECT_EQ(cv::norm(levels[3], expected, cv::NORM_INF), 0.0);
}

TEST(BilinearSample, InterpolatesInsideAndReadsTheBorderPairOutside) {
  // Columns 0, 1, 2, 3, 10 in every row; rows add 100 per row.
  cv::Mat image(3, 5, CV_32F);
  for (int y = 0; y < 3; ++y) {
    const float columns[] = {0, 1, 2, 3, 10};
    for (int x = 0; x < 5; ++x) image.at<float>(y, x) = columns[x] + 100.0f * y;
  }
  const float* data = image.ptr<float>();
  auto sample = [&](float x, float y) { return sampleBilinear(data, 5, 5, 3, x, y); };
  EXPECT_FLOAT_EQ(sample(1.5f, 0.25f), 26.5f);
  EXPECT_FLOAT_EQ(sample(2.0f, 1.0f), 102.0f);
  // Clamped to [0, width - 2] x [0, height - 2]: the last column and row are only ever reached
  // as the second of a pair, so far outside on the right reads column 3, not column 4.
  EXPECT_FLOAT_EQ(sample(4.0f, 0.0f), 3.0f);
  EXPECT_FLOAT_EQ(sample(40.0f, 9.0f), 103.0f);
  EXPECT_FLOAT_EQ(sample(-3.0f, -1.0f), 0.0f);
  EXPECT_FLOAT_EQ(sample(3.5f, 0.0f), 3.0f);
  // With three rows, y is clamped to 1: rows 1 and 2 are the last pair.
  EXPECT_FLOAT_EQ(sample(2.5f, 1.5f), 102.5f);
}

}  // namespace
}  // namespace velmora
