#include "fusion/tone_match.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace velmora {
namespace {

using testing::Lines;

// A 10 x 10 grey image whose pixels take the listed levels in runs, row by row.
cv::Mat greyRuns(std::vector<std::pair<int, int>> runs) {
  std::vector<uchar> levels;
  for (const auto& [count, level] : runs) levels.insert(levels.end(), count, uchar(level));
  cv::Mat image;
  cv::merge(std::vector<cv::Mat>(3, cv::Mat(levels).reshape(1, 10)), image);
  return image;
}

TEST(ToneMatch, PrintsItsThreeMeasuresAndRefusesAtTheirLimits) {
  const cv::Mat source(10, 10, CV_8UC3, cv::Scalar::all(100));
  const struct {
    std::vector<std::pair<int, int>> reference;
    bool changed;
    Lines lines;
  } cases[] = {
      {{{100, 100}}, false, {"Bright diff rate: 1"}},
      // 40 of 100 differences below 5: the rate 0.4f lies above the double 0.4, so it is refused.
      {{{40, 100}, {60, 130}}, false, {"Bright diff rate: 0.4"}},
      // All differences of 30 stay below median + 20, so nothing is masked.
      {{{39, 100}, {61, 130}}, true, {"Bright diff rate: 0.39", "Mask diff rate: 0"}},
      // The 30% entry is 0 and the median 40 (passes) or 41 (refused).
      {{{35, 100}, {65, 140}}, true, {"Bright diff rate: 0.35", "Mask diff rate: 0"}},
      {{{35, 100}, {65, 141}}, false, {"Bright diff rate: 0.35", "mean diff 50% > 30% over 40th."}},
      // Median 20: the pixels differing by 45 (> 40) count as changed, before the opening (which
      // clears a 10 x 10 mask entirely); exactly 40% passes.
      {{{30, 110}, {30, 120}, {40, 145}}, true, {"Bright diff rate: 0", "Mask diff rate: 0.4"}},
      {{{29, 110}, {30, 120}, {41, 145}}, false, {"Bright diff rate: 0", "Mask diff rate: 0.41"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lines.back());
    cv::Mat target(4, 6, CV_8UC3, cv::Scalar::all(100));
    testing::CapturedConsole console;
    matchToneToReference(source, greyRuns(c.reference), target);
    EXPECT_EQ(cv::countNonZero(target.reshape(1) != 100) > 0, c.changed);
    EXPECT_EQ(console.outLines(), c.lines);
  }
  cv::Mat target = source.clone();
  testing::CapturedConsole console;
  EXPECT_THROW(matchToneToReference(source, cv::Mat(10, 11, CV_8UC3, cv::Scalar::all(1)), target),
               cv::Exception);
}

TEST(ToneMatch, CurveFollowsTheReferenceAndIsClampedPerChannel) {
  // Every level 0..255 once; the reference is 20 levels brighter (clamped at 255).
  cv::Mat source(16, 16, CV_8UC3), reference(16, 16, CV_8UC3);
  for (int level = 0; level < 256; ++level) {
    source.at<cv::Vec3b>(level / 16, level % 16) = cv::Vec3b::all(uchar(level));
    reference.at<cv::Vec3b>(level / 16, level % 16) =
        cv::Vec3b::all(uchar(std::min(255, level + 20)));
  }
  cv::Mat target(1, 2, CV_8UC3);
  target.at<cv::Vec3b>(0, 0) = cv::Vec3b(60, 100, 140);
  target.at<cv::Vec3b>(0, 1) = cv::Vec3b::all(250);
  testing::CapturedConsole console;
  matchToneToReference(source, reference, target);
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(target.at<cv::Vec3b>(0, 0)[k], 80 + 40 * k, 4) << k;
  EXPECT_EQ(target.at<cv::Vec3b>(0, 1), cv::Vec3b::all(255));

  // Source levels 100 and 156 matched to 0 and 255: a step that the cubic overshoots both ways.
  std::vector<cv::Point2d> step;
  for (int i = 0; i < 256; ++i) step.emplace_back(i, i < 156 ? 0 : 255);
  const cv::Mat c = fitPolynomial(step, 3);
  const auto curve = [&c](double x) {
    return c.at<double>(0) + x * (c.at<double>(1) + x * (c.at<double>(2) + x * c.at<double>(3)));
  };
  int below = 0, above = 255;
  while (below < 256 && curve(below) >= -5.0) ++below;
  while (above >= 0 && curve(above) <= 260.0) --above;
  ASSERT_TRUE(below < 256 && above >= 0);
  target = cv::Mat(1, 1, CV_8UC3, cv::Scalar(below, 128, above));
  matchToneToReference(greyRuns({{50, 100}, {50, 156}}), greyRuns({{50, 0}, {50, 255}}), target);
  EXPECT_EQ(target.at<cv::Vec3b>(0, 0), cv::Vec3b(0, uchar(curve(128)), 255));  // truncated
}

TEST(ToneMatch, HistogramLevelsMatchUnmaskedCumulativeShares) {
  cv::Mat luma(2, 5, CV_8U, cv::Scalar(10));
  luma.row(1).setTo(20);
  LevelMap map;
  matchHistogramLevels(luma, luma, cv::Mat::zeros(luma.size(), CV_8U), map);
  // Empty levels share the cumulative share of the level before; the lowest match wins.
  for (const auto& [level, matched] :
       {std::pair{0, 0}, {9, 0}, {10, 10}, {19, 10}, {20, 20}, {255, 20}}) {
    EXPECT_EQ(map[level], unsigned(matched)) << level;
  }
  // The masked pixel would otherwise pull level 50 towards 200.
  cv::Mat source(1, 4, CV_8U, cv::Scalar(50)), reference(1, 4, CV_8U, cv::Scalar(80));
  source.at<uchar>(0, 3) = 60;
  reference.at<uchar>(0, 3) = 200;
  cv::Mat mask = cv::Mat::zeros(1, 4, CV_8U);
  mask.at<uchar>(0, 3) = 255;
  matchHistogramLevels(source, reference, mask, map);
  EXPECT_TRUE(map[50] == 80u && map[60] == 80u);
}

}  // namespace
}  // namespace velmora
