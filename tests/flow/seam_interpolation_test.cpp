// Overlap cut-outs and flows, the warp of a cut-out along its flow, and the seam blend.
#include "flow/seam_interpolation.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "api/status.h"
#include "flow/flow_test_images.h"
#include "flow/overlap_flow.h"

namespace velmora {
namespace {

// A BGRA image whose blue and green channels spell the column, red the image's tag.
cv::Mat columnCoded(int width, int height, uchar tag) {
  cv::Mat image(height, width, CV_8UC4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      image.at<cv::Vec4b>(y, x) = cv::Vec4b(x % 256, x / 256, tag, 255);
    }
  }
  return image;
}

int codedColumn(const cv::Vec4b& pixel) {
  return pixel[0] + 256 * pixel[1];
}

TEST(OverlapCutOut, TakesTheSixthRightOfTheFirstCentreAndLeftOfTheSecondsAndBlanksFarThirds) {
  EXPECT_EQ(overlapWidth(8192), 1365);
  EXPECT_EQ(overlapWidth(100), 16);
  const cv::Mat first = columnCoded(600, 8, 1);
  const cv::Mat second = columnCoded(600, 8, 2);
  SeamOverlap overlap;
  cutOutOverlap(first, second, overlap);
  ASSERT_EQ(overlap.firstCut.size(), cv::Size(100, 8));
  ASSERT_EQ(overlap.secondCut.size(), cv::Size(100, 8));
  // First: columns 300 to 399, of which 66 to 99 are blanked. Second: columns 200 to 299, of
  // which 0 to 32 are blanked.
  EXPECT_EQ(codedColumn(overlap.firstCut.at<cv::Vec4b>(3, 0)), 300);
  EXPECT_EQ(overlap.firstCut.at<cv::Vec4b>(3, 65), cv::Vec4b(365 % 256, 1, 1, 255));
  EXPECT_EQ(cv::countNonZero(overlap.firstCut.colRange(66, 100).reshape(1)), 0);
  EXPECT_EQ(cv::countNonZero(overlap.secondCut.colRange(0, 33).reshape(1)), 0);
  EXPECT_EQ(overlap.secondCut.at<cv::Vec4b>(7, 33), cv::Vec4b(233, 0, 2, 255));
  EXPECT_EQ(codedColumn(overlap.secondCut.at<cv::Vec4b>(0, 99)), 299);
  // The cut-outs are copies: the images are untouched.
  EXPECT_EQ(codedColumn(first.at<cv::Vec4b>(3, 399)), 399);
}

TEST(OverlapFlowJob, GivenFlowsAreKeptAndOnlyTheCutOutsAreMade) {
  const cv::Mat image = columnCoded(120, 16, 3);
  SeamOverlap overlap;
  overlap.flowFirstToSecond = cv::Mat(4, 4, CV_32FC2, cv::Scalar(7.0f, 1.0f));
  overlap.flowSecondToFirst = cv::Mat(5, 5, CV_32FC2, cv::Scalar(-7.0f, 1.0f));
  const uchar* given = overlap.flowFirstToSecond.data;
  runOverlapFlowJob(image, image, overlap, true);
  EXPECT_EQ(overlap.flowFirstToSecond.data, given);
  EXPECT_EQ(overlap.flowFirstToSecond.at<cv::Vec2f>(3, 3), cv::Vec2f(7.0f, 1.0f));
  EXPECT_EQ(overlap.flowSecondToFirst.size(), cv::Size(5, 5));
  EXPECT_EQ(overlap.firstCut.size(), cv::Size(20, 16));
}

TEST(OverlapFlowJob, ComputesBothDirectionsOverTheJointlyValidThird) {
  // The second image is placed so that its cut-out shows the first's cut-out moved 2 pixels left.
  const int width = 576;
  const int height = 64;
  const int shift = -2;
  const cv::Mat source = testing::texture(width + 400, height + 40, 3);
  const cv::Mat first =
      testing::withAlpha(testing::shiftedWindow(source, 20, 20, width, height, 0.0f, 0.0f));
  const int secondLeft = 20 + width / 2 - static_cast<int>(width * 120.0f / 360.0f);
  const cv::Mat second = testing::withAlpha(
      testing::shiftedWindow(source, secondLeft, 20, width, height, shift, 0.0f));
  SeamOverlap overlap;
  runOverlapFlowJob(first, second, overlap, false);
  ASSERT_EQ(overlap.flowFirstToSecond.type(), CV_32FC2);
  ASSERT_EQ(overlap.flowFirstToSecond.size(), overlap.firstCut.size());
  ASSERT_EQ(overlap.flowSecondToFirst.size(), overlap.secondCut.size());
  const cv::Rect middle(40, 8, 16, height - 16);  // of the 96 columns, 32 to 63 are valid in both
  const cv::Scalar forward = cv::mean(overlap.flowFirstToSecond(middle));
  const cv::Scalar backward = cv::mean(overlap.flowSecondToFirst(middle));
  EXPECT_NEAR(forward[0], shift, 0.3);
  EXPECT_NEAR(backward[0], -shift, 0.3);
  EXPECT_NEAR(forward[1], 0.0, 0.2);
  EXPECT_NEAR(backward[1], 0.0, 0.2);
}

TEST(OverlapFlowJob, FailuresInsideTheFlowThreadsReachTheCaller) {
  SeamOverlap overlap;
  // Cut-outs 2 pixels wide: each flow job refuses them on its own thread.
  const cv::Mat narrow = columnCoded(12, 40, 1);
  EXPECT_THROW(runOverlapFlowJob(narrow, narrow, overlap, false), Failure);
  // Images of different sizes are refused before any thread starts.
  EXPECT_THROW(runOverlapFlowJob(columnCoded(120, 40, 1), columnCoded(126, 40, 1), overlap, false),
               Failure);
}

// A textured cut-out and a constant flow (8, 4): on a 64-column grid, column 16 has t = 0.25.
struct WarpCase {
  cv::Mat image = testing::withAlpha(testing::texture(64, 48, 9));
  cv::Mat flow = cv::Mat(48, 64, CV_32FC2, cv::Scalar(8.0f, 4.0f));
  InterpolationGrid grid{64, 40};
};

TEST(WarpByFlow, LeadingImageStartsUndisplacedAtFullAlphaAndFades) {
  const WarpCase c;
  const WarpedImage warped = warpByFlow(c.grid, c.image, c.flow, BandSide::kLeading);
  ASSERT_EQ(warped.image.size(), cv::Size(64, 40));
  ASSERT_EQ(warped.image.type(), CV_8UC4);
  for (int y = 0; y < 40; ++y) {
    ASSERT_EQ(warped.image.at<cv::Vec4b>(y, 0), c.image.at<cv::Vec4b>(y, 0)) << "row " << y;
    // s = 0.25: sampled at (16 + 2, y + 1), alpha trunc(0.75 x 255).
    const cv::Vec4b moved = warped.image.at<cv::Vec4b>(y, 16);
    const cv::Vec4b source = c.image.at<cv::Vec4b>(y + 1, 18);
    ASSERT_EQ(cv::Vec3b(moved[0], moved[1], moved[2]), cv::Vec3b(source[0], source[1], source[2]));
    ASSERT_EQ(moved[3], 191);
  }
}

TEST(WarpByFlow, TrailingImageStartsFullyDisplacedAtZeroAlphaAndRises) {
  const WarpCase c;
  const WarpedImage warped = warpByFlow(c.grid, c.image, c.flow, BandSide::kTrailing);
  for (int y = 0; y < 30; ++y) {
    const cv::Vec4b start = warped.image.at<cv::Vec4b>(y, 0);
    const cv::Vec4b source = c.image.at<cv::Vec4b>(y + 4, 8);
    ASSERT_EQ(cv::Vec3b(start[0], start[1], start[2]), cv::Vec3b(source[0], source[1], source[2]));
    ASSERT_EQ(start[3], 0);
    // s = 0.75: sampled at (16 + 6, y + 3), alpha trunc(0.25 x 255).
    const cv::Vec4b moved = warped.image.at<cv::Vec4b>(y, 16);
    const cv::Vec4b at = c.image.at<cv::Vec4b>(y + 3, 22);
    ASSERT_EQ(cv::Vec3b(moved[0], moved[1], moved[2]), cv::Vec3b(at[0], at[1], at[2]));
    ASSERT_EQ(moved[3], 63);
  }
}

TEST(WarpByFlow, PositionsOutsideTheImageReadZeroAndMagnitudeFollowsTheFlow) {
  const cv::Mat image = testing::withAlpha(testing::texture(32, 24, 4));
  const cv::Mat flow(24, 32, CV_32FC2, cv::Scalar(3.0f, 4.0f));
  const WarpedImage warped = warpByFlow({48, 36}, image, flow, BandSide::kLeading);
  ASSERT_EQ(warped.magnitude.type(), CV_32F);
  EXPECT_FLOAT_EQ(warped.magnitude.at<float>(10, 10), 5.0f);
  // Beyond the flow the resampled flow is zero, so beyond the image nothing is read.
  EXPECT_EQ(warped.magnitude.at<float>(30, 40), 0.0f);
  EXPECT_EQ(cv::countNonZero(warped.image(cv::Rect(36, 0, 12, 36)).reshape(1)), 0);
  EXPECT_EQ(cv::countNonZero(warped.image(cv::Rect(0, 28, 48, 8)).reshape(1)), 0);
}

// Blend fixtures: 12 columns (the ramp runs over columns 4 to 8), one row per case.
cv::Mat blendRow(const cv::Vec4b& value) {
  return cv::Mat(1, 12, CV_8UC4, cv::Scalar(value));
}

TEST(SeamBlend, SingleSourcePixelsKeepTheirColourWithThresholdedAlpha) {
  const cv::Vec4b absent(50, 60, 70, 0);
  const struct {
    cv::Vec4b a, b, expected;
  } cases[] = {
      {{10, 20, 30, 26}, absent, {10, 20, 30, 255}},  // 26 / 255 > 0.1
      {{10, 20, 30, 25}, absent, {10, 20, 30, 0}},    // present, but 25 / 255 is not above 0.1
      {absent, {1, 2, 3, 200}, {1, 2, 3, 255}},      {absent, {1, 2, 3, 1}, {1, 2, 3, 0}},
      {absent, {90, 91, 92, 0}, {0, 0, 0, 0}},
  };
  for (const auto& c : cases) {
    const cv::Mat out = blendWarpedPair(blendRow(c.a), blendRow(c.b));
    for (int x = 0; x < 12; ++x) {
      ASSERT_EQ(out.at<cv::Vec4b>(0, x), c.expected)
          << "column " << x << " a " << c.a << " b " << c.b;
    }
  }
}

TEST(SeamBlend, PixelsPresentInBothRampFromTheFirstToTheSecondThird) {
  const cv::Mat out = blendWarpedPair(blendRow({0, 100, 255, 1}), blendRow({5, 200, 0, 3}));
  for (int x = 0; x < 12; ++x) EXPECT_EQ(out.at<cv::Vec4b>(0, x)[3], 255);
  EXPECT_EQ(out.at<cv::Vec4b>(0, 0), cv::Vec4b(0, 100, 255, 255));
  EXPECT_EQ(out.at<cv::Vec4b>(0, 4), cv::Vec4b(0, 100, 255, 255));  // w = 0
  EXPECT_EQ(out.at<cv::Vec4b>(0, 5), cv::Vec4b(1, 125, 191, 255));  // w = 0.25: 1.25, 191.25
  EXPECT_EQ(out.at<cv::Vec4b>(0, 6),
            cv::Vec4b(3, 150, 128, 255));                         // w = 0.5: 2.5 -> 3, 127.5 -> 128
  EXPECT_EQ(out.at<cv::Vec4b>(0, 8), cv::Vec4b(5, 200, 0, 255));  // w = 1
  EXPECT_EQ(out.at<cv::Vec4b>(0, 11), cv::Vec4b(5, 200, 0, 255));
}

TEST(SeamBand, HasTheBandSizeAndShowsTheFirstCutOutUndisplacedAtItsFirstColumn) {
  const cv::Mat firstCut = testing::withAlpha(testing::texture(20, 24, 1));
  const cv::Mat secondCut = testing::withAlpha(testing::texture(20, 24, 2));
  const cv::Mat forward(24, 20, CV_32FC2, cv::Scalar(-3.0f, 1.0f));
  const cv::Mat backward(24, 20, CV_32FC2, cv::Scalar(3.0f, -1.0f));
  cv::Mat band;
  interpolateSeamBand(firstCut, secondCut, forward, backward, 3, 100, 22, band);
  ASSERT_EQ(band.size(), cv::Size(33, 22));
  ASSERT_EQ(band.type(), CV_8UC4);
  for (int y = 0; y < 22; ++y) {
    ASSERT_EQ(band.at<cv::Vec4b>(y, 0), firstCut.at<cv::Vec4b>(y, 0)) << "row " << y;
  }
  // Past the cut-outs (20 columns) and their flows nothing is present.
  EXPECT_EQ(cv::countNonZero(band.colRange(26, 33).reshape(1)), 0);
  EXPECT_THROW(interpolateSeamBand(firstCut, secondCut, forward, backward, 0, 100, 22, band),
               Failure);
  EXPECT_THROW(interpolateSeamBand(firstCut, secondCut, forward, backward, 6, 5, 22, band),
               Failure);
}

}  // namespace
}  // namespace velmora
