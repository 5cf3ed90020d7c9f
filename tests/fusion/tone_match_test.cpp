#include "fusion/tone_match.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace velmora {
namespace {

// A 10 x 10 grey image whose pixels take the listed levels in runs, row by row.
cv::Mat greyRuns(std::initializer_list<std::pair<int, int>> runs) {
  cv::Mat image(10, 10, CV_8UC3);
  int index = 0;
  for (const auto& [count, level] : runs) {
    for (int k = 0; k < count; ++k, ++index) {
      image.at<cv::Vec3b>(index / 10, index % 10) = cv::Vec3b::all(static_cast<uchar>(level));
    }
  }
  EXPECT_EQ(index, 100);
  return image;
}

const cv::Mat kSource = cv::Mat(10, 10, CV_8UC3, cv::Scalar::all(100));

struct Outcome {
  bool changed;
  std::vector<std::string> lines;
};

// Matches a fresh 100-grey target from kSource to reference.
Outcome match(const cv::Mat& reference) {
  cv::Mat target(4, 6, CV_8UC3, cv::Scalar::all(100));
  const cv::Mat original = target.clone();
  testing::CapturedConsole console;
  matchToneToReference(kSource, reference, target);
  return {cv::norm(target, original, cv::NORM_INF) > 0, console.outLines()};
}

TEST(ToneMatchRefusals, IdenticalFramesAreLeftAlone) {
  const Outcome outcome = match(kSource);
  EXPECT_FALSE(outcome.changed);
  EXPECT_EQ(outcome.lines, std::vector<std::string>{"Bright diff rate: 1"});
}

TEST(ToneMatchRefusals, StillRateIsComparedInSinglePrecision) {
  // 40 of 100 differences below 5: the rate 0.4f lies above the double 0.4, so it is refused.
  Outcome outcome = match(greyRuns({{40, 100}, {60, 130}}));
  EXPECT_FALSE(outcome.changed);
  EXPECT_EQ(outcome.lines, std::vector<std::string>{"Bright diff rate: 0.4"});
  // 39 of 100 pass; all differences of 30 stay below median + 20, so nothing is masked.
  outcome = match(greyRuns({{39, 100}, {61, 130}}));
  EXPECT_TRUE(outcome.changed);
  EXPECT_EQ(outcome.lines,
            (std::vector<std::string>{"Bright diff rate: 0.39", "Mask diff rate: 0"}));
}

TEST(ToneMatchRefusals, SpreadOfFortyPassesAndFortyOneIsRefused) {
  // Entries 0..34 differ by 0, 35..99 by 40 or 41: the 30% entry is 0, the median 40 or 41.
  Outcome outcome = match(greyRuns({{35, 100}, {65, 140}}));
  EXPECT_TRUE(outcome.changed);
  EXPECT_EQ(outcome.lines.size(), 2u);
  outcome = match(greyRuns({{35, 100}, {65, 141}}));
  EXPECT_FALSE(outcome.changed);
  EXPECT_EQ(outcome.lines,
            (std::vector<std::string>{"Bright diff rate: 0.35", "mean diff 50% > 30% over 40th."}));
}

TEST(ToneMatchRefusals, MaskRateOfExactlyFortyPercentPasses) {
  // Median 20: the pixels differing by 45 (> 40) count as changed, before the opening (which
  // clears a 10 x 10 mask entirely).
  Outcome outcome = match(greyRuns({{30, 110}, {30, 120}, {40, 145}}));
  EXPECT_TRUE(outcome.changed);
  EXPECT_EQ(outcome.lines,
            (std::vector<std::string>{"Bright diff rate: 0", "Mask diff rate: 0.4"}));
  outcome = match(greyRuns({{29, 110}, {30, 120}, {41, 145}}));
  EXPECT_FALSE(outcome.changed);
  EXPECT_EQ(outcome.lines,
            (std::vector<std::string>{"Bright diff rate: 0", "Mask diff rate: 0.41"}));
}

TEST(ToneMatchRefusals, SourceAndReferenceOfDifferentSizesRaise) {
  cv::Mat target = kSource.clone();
  testing::CapturedConsole console;
  EXPECT_THROW(matchToneToReference(kSource, cv::Mat(10, 11, CV_8UC3, cv::Scalar::all(1)), target),
               cv::Exception);
}

TEST(ToneCurve, FollowsABrighterReference) {
  // Every level 0..255 once; the reference is 20 levels brighter (clamped at 255).
  cv::Mat source(16, 16, CV_8UC3);
  cv::Mat reference(16, 16, CV_8UC3);
  for (int level = 0; level < 256; ++level) {
    source.at<cv::Vec3b>(level / 16, level % 16) = cv::Vec3b::all(static_cast<uchar>(level));
    reference.at<cv::Vec3b>(level / 16, level % 16) =
        cv::Vec3b::all(static_cast<uchar>(std::min(255, level + 20)));
  }
  cv::Mat target(1, 2, CV_8UC3);
  target.at<cv::Vec3b>(0, 0) = cv::Vec3b(60, 100, 140);
  target.at<cv::Vec3b>(0, 1) = cv::Vec3b::all(250);
  testing::CapturedConsole console;
  matchToneToReference(source, reference, target);
  const cv::Vec3b pixel = target.at<cv::Vec3b>(0, 0);
  EXPECT_NEAR(pixel[0], 80, 4);
  EXPECT_NEAR(pixel[1], 120, 4);
  EXPECT_NEAR(pixel[2], 160, 4);
  EXPECT_EQ(target.at<cv::Vec3b>(0, 1), cv::Vec3b::all(255));
}

TEST(ToneCurve, ValuesOutsideTheByteRangeAreClamped) {
  // Source levels 100 and 156 matched to 0 and 255: a step that the cubic overshoots on both
  // sides.
  cv::Mat source(10, 10, CV_8UC3);
  cv::Mat reference(10, 10, CV_8UC3);
  for (int y = 0; y < 10; ++y) {
    source.row(y).setTo(cv::Scalar::all(y < 5 ? 100 : 156));
    reference.row(y).setTo(cv::Scalar::all(y < 5 ? 0 : 255));
  }
  std::vector<cv::Point2d> step;
  for (int i = 0; i < 256; ++i) step.emplace_back(i, i < 156 ? 0 : 255);
  const cv::Mat c = fitPolynomial(step, 3);
  auto curve = [&c](double x) {
    return c.at<double>(0) + c.at<double>(1) * x + c.at<double>(2) * x * x +
           c.at<double>(3) * x * x * x;
  };
  int below = -1;
  int above = -1;
  for (int level = 0; level < 256; ++level) {
    if (curve(level) < -5.0 && below < 0) below = level;
    if (curve(level) > 260.0 && above < 0) above = level;
  }
  ASSERT_GE(below, 0);
  ASSERT_GE(above, 0);

  cv::Mat target(1, 3, CV_8UC3);
  target.at<cv::Vec3b>(0, 0) = cv::Vec3b::all(static_cast<uchar>(below));
  target.at<cv::Vec3b>(0, 1) = cv::Vec3b::all(static_cast<uchar>(above));
  target.at<cv::Vec3b>(0, 2) = cv::Vec3b(static_cast<uchar>(below), 128, static_cast<uchar>(above));
  testing::CapturedConsole console;
  matchToneToReference(source, reference, target);
  EXPECT_EQ(target.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(target.at<cv::Vec3b>(0, 1), cv::Vec3b(255, 255, 255));
  const cv::Vec3b mixed = target.at<cv::Vec3b>(0, 2);
  EXPECT_EQ(mixed[0], 0);
  EXPECT_EQ(mixed[1], static_cast<uchar>(curve(128)));  // truncated, channels apart
  EXPECT_EQ(mixed[2], 255);
}

TEST(HistogramLevels, EqualImagesMapOccupiedLevelsToThemselves) {
  cv::Mat luma(2, 5, CV_8U);
  luma.setTo(10);
  luma.row(1).setTo(20);
  LevelMap map;
  matchHistogramLevels(luma, luma, cv::Mat::zeros(luma.size(), CV_8U), map);
  // Empty levels share the cumulative share of the level before; the lowest match wins.
  EXPECT_EQ(map[0], 0u);
  EXPECT_EQ(map[9], 0u);
  EXPECT_EQ(map[10], 10u);
  EXPECT_EQ(map[19], 10u);
  EXPECT_EQ(map[20], 20u);
  EXPECT_EQ(map[255], 20u);
}

TEST(HistogramLevels, MaskedPixelsAreLeftOut) {
  cv::Mat source(1, 4, CV_8U);
  cv::Mat reference(1, 4, CV_8U);
  source.setTo(50);
  reference.setTo(80);
  // The masked pixel would otherwise pull level 50 towards 200.
  source.at<uchar>(0, 3) = 60;
  reference.at<uchar>(0, 3) = 200;
  cv::Mat mask = cv::Mat::zeros(1, 4, CV_8U);
  mask.at<uchar>(0, 3) = 255;
  LevelMap map;
  matchHistogramLevels(source, reference, mask, map);
  EXPECT_EQ(map[50], 80u);
  EXPECT_EQ(map[60], 80u);
  EXPECT_THROW(matchHistogramLevels(source, reference, cv::Mat::zeros(1, 3, CV_8U), map),
               cv::Exception);
}

TEST(PolynomialFit, RecoversAKnownCubic) {
  std::vector<cv::Point2d> points;
  for (int x = 0; x < 256; ++x) {
    points.emplace_back(x, 3.5 - 0.75 * x + 0.02 * x * x - 4e-5 * x * x * x);
  }
  const cv::Mat c = fitPolynomial(points, 3);
  ASSERT_EQ(c.type(), CV_64F);
  ASSERT_EQ(c.size(), cv::Size(1, 4));
  EXPECT_NEAR(c.at<double>(0), 3.5, 1e-6);
  EXPECT_NEAR(c.at<double>(1), -0.75, 1e-7);
  EXPECT_NEAR(c.at<double>(2), 0.02, 1e-9);
  EXPECT_NEAR(c.at<double>(3), -4e-5, 1e-11);
}

TEST(PolynomialFit, LeastSquaresLineThroughScatteredPoints) {
  const cv::Mat c = fitPolynomial({{0, 1}, {1, 2}, {2, 2}, {3, 4}}, 1);
  // Slope 0.9 and intercept 0.9 minimise the squared residuals of these four points.
  EXPECT_NEAR(c.at<double>(0), 0.9, 1e-12);
  EXPECT_NEAR(c.at<double>(1), 0.9, 1e-12);
}

}  // namespace
}  // namespace velmora
