// Overlap cut-outs and the seam blend. (The flows between cut-outs and the band built from them are
// checked by the ring stitch's tests and the stitch quality test.)
#include "flow/seam_interpolation.h"

#include <gtest/gtest.h>

#include "flow/overlap_flow.h"

namespace velmora {
namespace {

// A BGRA image whose blue and green channels spell the column, red the image's tag.
cv::Mat columnCoded(int width, int height, uchar tag) {
  cv::Mat image(height, width, CV_8UC4);
  image.forEach<cv::Vec4b>(
      [tag](cv::Vec4b& p, const int* at) { p = cv::Vec4b(at[1] % 256, at[1] / 256, tag, 255); });
  return image;
}

TEST(OverlapCutOut, TakesTheSixthsBesideTheCentresAndBlanksTheFarThirds) {
  EXPECT_EQ(overlapWidth(8192), 1365);
  EXPECT_EQ(overlapWidth(100), 16);
  const cv::Mat first = columnCoded(600, 8, 1), second = columnCoded(600, 8, 2);
  SeamOverlap overlap;
  cutOutOverlap(first, second, overlap);
  // First: columns 300 to 399, 66 to 99 blanked; second: columns 200 to 299, 0 to 32 blanked.
  cv::Mat firstCut = first.colRange(300, 400).clone(),
          secondCut = second.colRange(200, 300).clone();
  firstCut.colRange(66, 100).setTo(cv::Scalar::all(0));
  secondCut.colRange(0, 33).setTo(cv::Scalar::all(0));
  EXPECT_EQ(cv::norm(overlap.firstCut, firstCut, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(overlap.secondCut, secondCut, cv::NORM_INF), 0.0);
  EXPECT_EQ(first.at<cv::Vec4b>(3, 399), cv::Vec4b(399 % 256, 1, 1, 255));  // copies were cut
}

// One row of 12 columns (the colour ramp runs over columns 4 to 8).
cv::Mat blendRow(const cv::Vec4b& value) {
  return cv::Mat(1, 12, CV_8UC4, cv::Scalar(value));
}

TEST(SeamBlend, SingleSourcesKeepTheirColourWithThresholdedAlphaPairsRampOverTheMiddleThird) {
  const cv::Vec4b absent(50, 60, 70, 0);
  const struct {
    cv::Vec4b a, b, expected;
  } cases[] = {
      {{10, 20, 30, 26}, absent, {10, 20, 30, 255}},  // 26 / 255 > 0.1
      {{10, 20, 30, 25}, absent, {10, 20, 30, 0}},    // present, but not above 0.1
      {absent, {1, 2, 3, 200}, {1, 2, 3, 255}},      {absent, {1, 2, 3, 1}, {1, 2, 3, 0}},
      {absent, {90, 91, 92, 0}, {0, 0, 0, 0}},
  };
  for (const auto& c : cases) {
    const cv::Mat out = blendWarpedPair(blendRow(c.a), blendRow(c.b));
    EXPECT_EQ(cv::norm(out, blendRow(c.expected), cv::NORM_INF), 0.0) << c.a << c.b;
  }
  // Weights 0 up to column 4, then 0.25, 0.5 (2.5 and 127.5 round up), 0.75, and 1 from column 8.
  cv::Mat ramp = blendRow({0, 100, 255, 255});
  ramp.colRange(8, 12).setTo(cv::Scalar(5, 200, 0, 255));
  ramp.at<cv::Vec4b>(0, 5) = {1, 125, 191, 255};
  ramp.at<cv::Vec4b>(0, 6) = {3, 150, 128, 255};
  ramp.at<cv::Vec4b>(0, 7) = {4, 175, 64, 255};
  const cv::Mat out = blendWarpedPair(blendRow({0, 100, 255, 1}), blendRow({5, 200, 0, 3}));
  EXPECT_EQ(cv::norm(out, ramp, cv::NORM_INF), 0.0);
}

}  // namespace
}  // namespace velmora
