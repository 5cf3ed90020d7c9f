// The flow job end to end, and the steps of it that the comparison with a plain chain of calls
// takes as given: the pyramid, the coarsest level's patch search, tie handling in the sweeps and
// the prior blend.
#include "flow/optical_flow.h"

#include <gtest/gtest.h>

#include <cmath>

#include "flow/flow_pyramid.h"
#include "flow/flow_test_images.h"
#include "flow/initial_search.h"
#include "flow/level_refinement.h"

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

// The flow is found at half resolution by damped gradient steps pulled towards a smooth prior, so
// a shift is reached to a few tenths of a pixel. Lost factors (2 to full size, 1 / 0.88 a level)
// are 0.7 px or more, swapped components 1 px, a wrong sign 3 px.
TEST(FlowJob, RecoversZeroWholeAndSubPixelShiftsWhereBothImagesAreValid) {
  const struct {
    float dx, dy;
    int hint;
    double mean, largest;  // per component
  } cases[] = {{0, 0, kHintRightward, 0.03, 0.1},      {0, 0, kHintLeftward, 0.03, 0.1},
               {0, 0, kHintNoSearch, 0.03, 0.1},       {3, 0, kHintNoSearch, 0.25, 0.6},
               {1.5f, 0.5f, kHintNoSearch, 0.25, 0.6}, {-2, 1, kHintNoSearch, 0.25, 0.6}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.dx) + "," + std::to_string(c.dy) + " hint " +
                 std::to_string(c.hint));
    auto [first, second] = shiftedPair(c.dx, c.dy);
    first.colRange(3 * kWidth / 4, kWidth).setTo(cv::Scalar::all(0));  // as in the overlap bands,
    second.colRange(0, kWidth / 4).setTo(cv::Scalar::all(0));          // the middle half is valid
    cv::Mat flow, error[2];
    computeOpticalFlow(first, second, flow, c.hint, true);
    const cv::Rect bothValid(kWidth / 4 + 8, 8, kWidth / 2 - 16, kHeight - 16);
    cv::split(cv::abs(flow(bothValid) - cv::Scalar(c.dx, c.dy)), error);
    for (const cv::Mat& component : error) {
      EXPECT_LT(cv::mean(component)[0], c.mean);
      EXPECT_LT(cv::norm(component, cv::NORM_INF), c.largest);
    }
  }
}

TEST(FlowJob, InvalidHoleTakesTheSmoothFieldOfItsSurroundings) {
  auto [first, second] = shiftedPair(3, 0);
  first(cv::Rect(80, 50, 24, 24)).setTo(cv::Scalar::all(0));
  cv::Mat flow;
  computeOpticalFlow(first, second, flow, kHintNoSearch, true);
  // Nothing in the hole is matched: without the prior blend it would keep the zero start.
  const cv::Scalar inside = cv::mean(flow(cv::Rect(86, 56, 12, 12)));
  EXPECT_NEAR(inside[0], 3.0, 0.5);
  EXPECT_NEAR(inside[1], 0.0, 0.2);
}

TEST(FlowPyramid, LevelsShrinkBy088RoundedStopBelow25PixelsAndAt100Levels) {
  const std::vector<cv::Size> expected{{64, 48}, {56, 42}, {49, 37}, {43, 33}, {38, 29}, {33, 26}};
  EXPECT_EQ(pyramidLevelSizes(cv::Size(64, 48)), expected);
  EXPECT_EQ(pyramidLevelSizes(cv::Size(24, 300)).size(), 1u);  // level 0 is kept as it is
  EXPECT_EQ(pyramidLevelSizes(cv::Size(1 << 30, 1 << 30)).size(), kPyramidMaximumLevels);
  cv::Mat image(48, 64, CV_32F), expectedLevel;
  cv::randu(image, 0.0f, 1.0f);
  const std::vector<cv::Mat> levels = buildPyramid(image);
  ASSERT_EQ(levels.size(), 6u);
  cv::resize(levels[2], expectedLevel, cv::Size(43, 33), 0, 0, cv::INTER_LINEAR);
  EXPECT_EQ(cv::norm(levels[3], expectedLevel, cv::NORM_INF), 0.0);
}

constexpr int kSide = 48;

cv::Mat ones(int side = kSide) {
  return cv::Mat(side, side, CV_32F, cv::Scalar(1.0f));
}

// Grey views of one texture, the second showing the first's content displaced by (dx, dy).
std::pair<cv::Mat, cv::Mat> shiftedGreys(int dx, int dy) {
  const cv::Mat source = testing::texture(kSide + 40, kSide + 40, 5);
  cv::Mat views[2];
  for (int i = 0; i < 2; ++i) {
    cv::cvtColor(testing::shiftedWindow(source, 20, 20, kSide, kSide, i * dx, i * dy), views[i],
                 cv::COLOR_BGR2GRAY);
    views[i].convertTo(views[i], CV_32F, 1.0 / 255.0);
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
  // The overlap jobs search rightward (dx 0 to 5) and leftward (dx -5 to 0), dy -1 to 1.
  EXPECT_GT(shareOf(searched(shiftedGreys(3, 1), kHintRightward), 3, 1), 0.9);
  EXPECT_GT(shareOf(searched(shiftedGreys(-4, -1), kHintLeftward), -4, -1), 0.9);
  // Out of range: every stored flow is a whole displacement of the hint's range.
  searched(shiftedGreys(-3, 0), kHintRightward).forEach<cv::Vec2f>([](cv::Vec2f& f, const int*) {
    ASSERT_TRUE(f[0] == std::round(f[0]) && f[1] == std::round(f[1]) && f[0] >= 0 && f[0] <= 5 &&
                std::abs(f[1]) <= 1)
        << f;
  });
  EXPECT_EQ(cv::countNonZero(searched(shiftedGreys(3, 0), kHintNoSearch).reshape(1)), 0);
  auto greys = shiftedGreys(2, 0);
  greys.second *= 1.6;  // brightness is matched
  EXPECT_GT(shareOf(searched(greys, kHintRightward), 2, 0), 0.9);
  // Flat images: every candidate costs 0, and the first, zero displacement, stays.
  const cv::Mat flat(kSide, kSide, CV_32F, cv::Scalar(0.5f));
  EXPECT_EQ(cv::countNonZero(searched({flat, flat}, kHintLeftward).reshape(1)), 0);
  cv::Mat alpha0 = ones();
  alpha0.colRange(0, kSide / 2).setTo(0.9f);  // not above 0.9
  const cv::Mat flow = searched(shiftedGreys(3, 0), kHintRightward, alpha0);
  EXPECT_EQ(cv::countNonZero(flow.colRange(0, kSide / 2).reshape(1)), 0);
  EXPECT_EQ(flow.at<cv::Vec2f>(20, 30), cv::Vec2f(3, 0));
}

TEST(PatchCost, SkipsOffsetsOutsideTheFirstImageClampsTheSecondAndNeedsJointValidity) {
  const cv::Mat alpha = ones(30), first = ones(30), dark = cv::Mat::zeros(30, 30, CV_32F);
  const cv::Mat quarter(30, 30, CV_32F, cv::Scalar(0.25f));
  // At the corner only the 11 x 11 offsets inside count: D / S = 0.75, undiluted.
  EXPECT_FLOAT_EQ(patchCost(first, alpha, {0, 0}, quarter, alpha, {0, 0}), 0.75f);
  // Displacement (29, 29) is dearer by 1 + 0.2 |(29, 29)|.
  EXPECT_FLOAT_EQ(patchCost(first, alpha, {0, 0}, quarter, alpha, {29, 29}),
                  (1.0f + 0.2f * static_cast<float>(std::sqrt(2.0 * 29 * 29))) * 0.75f);
  // Around column 29 of the second image, offsets 0 to 10 all read column 29.
  cv::Mat lastColumnLit = dark.clone();
  lastColumnLit.col(29).setTo(1.0f);
  EXPECT_FLOAT_EQ(patchCost(dark, alpha, {15, 15}, lastColumnLit, alpha, {29, 15}),
                  (1.0f + 0.2f * 14.0f) * (11.0f * 21.0f) / 441.0f);
  EXPECT_FALSE(std::isfinite(patchCost(dark, alpha, {15, 15}, dark, dark, {15, 15})));
}

TEST(PropagationSweeps, EqualCostsDoNotReplace) {
  // Zero gradients and prior: (3, 1) and (3, -1) cost the same, and only (10, 7) is visited.
  SweepInputs level;
  level.gradient0x = level.gradient0y = level.gradient1x = level.gradient1y =
      cv::Mat::zeros(12, 20, CV_32F);
  level.alpha0 = level.alpha1 = cv::Mat::zeros(12, 20, CV_32F);  // one buffer
  level.alpha0.at<float>(7, 10) = 1.0f;
  level.prior = cv::Mat::zeros(12, 20, CV_32FC2);
  for (bool wide : {false, true}) {
    cv::Mat forward(12, 20, CV_32FC2, cv::Scalar(3.0f, -1.0f));
    forward.at<cv::Vec2f>(7, 10) = cv::Vec2f(3.0f, 1.0f);
    cv::Mat backward = forward.clone();
    forwardSweep(level, forward, wide);
    backwardSweep(level, backward, wide);
    EXPECT_GT(forward.at<cv::Vec2f>(7, 10)[1], 0.5f) << "wide " << wide;
    EXPECT_GT(backward.at<cv::Vec2f>(7, 10)[1], 0.5f) << "wide " << wide;
  }
}

// Inside the level (where every candidate exists and four pixels are refined at once) as well:
// of candidates that cost the same, the first visited wins, (x -+ 2, y) before (x, y -+ 2) and
// before the farther ones.
TEST(PropagationSweeps, AmongEqualCandidatesTheFirstVisitedWins) {
  SweepInputs level;
  level.gradient0x = level.gradient0y = level.gradient1x = level.gradient1y =
      cv::Mat::zeros(24, 24, CV_32F);
  level.alpha0 = level.alpha1 = cv::Mat::zeros(24, 24, CV_32F);
  for (int y = 11; y <= 12; ++y) {
    for (int x = 11; x <= 13; ++x) level.alpha0.at<float>(y, x) = 1.0f;
  }
  level.prior = cv::Mat::zeros(24, 24, CV_32FC2);
  for (bool forward : {true, false}) {
    // (12, 12) costs the most; every candidate of the visited pixels costs the same, and only
    // the row's nearest one points up.
    cv::Mat flow(24, 24, CV_32FC2, cv::Scalar(3.0f, -1.0f));
    flow.at<cv::Vec2f>(12, 12) = cv::Vec2f(9.0f, 9.0f);
    flow.at<cv::Vec2f>(12, forward ? 10 : 14) = cv::Vec2f(3.0f, 1.0f);
    forward ? forwardSweep(level, flow, true) : backwardSweep(level, flow, true);
    EXPECT_GT(flow.at<cv::Vec2f>(12, 12)[1], 0.5f) << "forward " << forward;
    EXPECT_LT(flow.at<cv::Vec2f>(12, 12)[0], 4.0f) << "forward " << forward;
  }
}

TEST(PriorBlend, InvalidPixelsTakeTheBlurredFieldValidOnesKeepTheirs) {
  cv::Mat flow(40, 40, CV_32FC2, cv::Scalar(1.0f, -1.0f)), blurred;
  const cv::Rect hole(15, 15, 10, 10);
  flow(hole).setTo(cv::Scalar(9.0f, 4.0f));
  cv::Mat alpha0(40, 40, CV_32F, cv::Scalar(1.0f)), alpha1 = alpha0.clone();
  alpha0(hole).setTo(0.0f);
  alpha0.at<float>(5, 5) = alpha1.at<float>(5, 5) = 0.5f;  // jointly a quarter valid
  cv::GaussianBlur(flow, blurred, cv::Size(15, 15), 8.0, 8.0, cv::BORDER_REFLECT_101);
  cv::Mat expected = flow.clone();
  blurred(hole).copyTo(expected(hole));
  expected.at<cv::Vec2f>(5, 5) =
      0.25f * flow.at<cv::Vec2f>(5, 5) + 0.75f * blurred.at<cv::Vec2f>(5, 5);
  blendWithPrior(flow, alpha0, alpha1);
  EXPECT_LT(cv::norm(flow, expected, cv::NORM_INF), 1e-4);
}

}  // namespace
}  // namespace velmora
