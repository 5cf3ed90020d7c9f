// The ring stitch: overlap cut-outs and the seam blend, the drivers and the ring's brightness
// equalisation. (The flows between cut-outs are the flow job's tests; the warp is compared with
// a plain form in reference_paths_test.cpp.)
#include "flow/stitch_driver.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "common/status.h"
#include "flow/flow_test_images.h"
#include "flow/overlap_flow.h"
#include "flow/ring_brightness.h"
#include "flow/seam_interpolation.h"

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

constexpr int kWidth = 192;  // bands of 32 columns for six images
constexpr int kHeight = 48;

cv::Mat flat(const cv::Scalar& colour, int alpha = 255) {
  return cv::Mat(kHeight, kWidth, CV_8UC4, cv::Scalar(colour[0], colour[1], colour[2], alpha));
}

// Six views of one panorama texture like the rig's: image i looks at longitude i x 60 degrees
// (its centre column shows it), is valid over its middle 120 degrees (plus a few columns) and
// empty elsewhere, and is displaced vertically by (i % 3 - 1) pixels so that neighbours need a
// flow to meet.
std::vector<cv::Mat> texturedRing() {
  const cv::Mat panorama = testing::texture(kWidth, kHeight + 20, 21);
  cv::Mat wrapped;
  cv::hconcat(std::vector<cv::Mat>{panorama, panorama, panorama}, wrapped);
  std::vector<cv::Mat> ring;
  for (int i = 0; i < 6; ++i) {
    const int left = kWidth + i * kWidth / 6 - kWidth / 2;
    cv::Mat view = testing::withAlpha(
        testing::shiftedWindow(wrapped, left, 10, kWidth, kHeight, 0.0f, i % 3 - 1.0f));
    view.colRange(0, kWidth / 3 - 4).setTo(cv::Scalar::all(0));
    view.colRange(2 * kWidth / 3 + 4, kWidth).setTo(cv::Scalar::all(0));
    ring.push_back(view);
  }
  return ring;
}

TEST(StitchRing, GivesBgrImagesTheSamePanoramaAsTheirBgraFormAndHandsThemBackEqualised) {
  std::vector<cv::Mat> bgra = texturedRing(), bgr(6);
  for (std::size_t i = 0; i < 6; ++i) {
    cv::cvtColor(bgra[i], bgr[i], cv::COLOR_BGRA2BGR);
    cv::cvtColor(bgr[i], bgra[i], cv::COLOR_BGR2BGRA);
  }
  cv::Mat fromBgra, fromBgr, equalised;
  stitchRing(fromBgra, bgra, 60.0f, 6, kWidth, kHeight);
  stitchRing(fromBgr, bgr, 60.0f, 6, kWidth, kHeight);
  EXPECT_EQ(cv::norm(fromBgra, fromBgr, cv::NORM_INF), 0.0);
  EXPECT_GT(cv::countNonZero(fromBgr.reshape(1)), kWidth * kHeight * 3 * 9 / 10);
  for (std::size_t i = 0; i < 6; ++i) {
    ASSERT_EQ(bgr[i].type(), CV_8UC3);
    cv::cvtColor(bgra[i], equalised, cv::COLOR_BGRA2BGR);
    EXPECT_EQ(cv::norm(bgr[i], equalised, cv::NORM_INF), 0.0) << "image " << i;
  }
}

TEST(StitchRing, ReadsOnlyTheColumnsItNamesAndEqualisesOnlyThoseWhenAskedTo) {
  const cv::Range read = ringColumnsRead(kWidth, kWidth, 6);
  ASSERT_LT(read.size(), kWidth / 2);
  std::vector<cv::Mat> ring = texturedRing(), scrambled(6);
  cv::RNG rng(4);
  for (std::size_t i = 0; i < 6; ++i) {
    scrambled[i] = ring[i].clone();
    rng.fill(scrambled[i].colRange(0, read.start), cv::RNG::UNIFORM, 0, 256);
    rng.fill(scrambled[i].colRange(read.end, kWidth), cv::RNG::UNIFORM, 0, 256);
  }
  std::vector<cv::Mat> asGiven(6);
  for (std::size_t i = 0; i < 6; ++i) asGiven[i] = scrambled[i].clone();
  cv::Mat whole, part;
  stitchRing(whole, ring, 60.0f, 6, kWidth, kHeight);
  stitchRing(part, scrambled, 60.0f, 6, kWidth, kHeight, UnreadColumns::kAsGiven);
  EXPECT_EQ(cv::norm(whole, part, cv::NORM_INF), 0.0);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(cv::norm(scrambled[i].colRange(read), ring[i].colRange(read), cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::norm(scrambled[i].colRange(0, read.start), asGiven[i].colRange(0, read.start),
                       cv::NORM_INF),
              0.0);
    EXPECT_EQ(cv::norm(scrambled[i].colRange(read.end, kWidth),
                       asGiven[i].colRange(read.end, kWidth), cv::NORM_INF),
              0.0);
  }
  // A ring of fewer images reads its overlap bands alone.
  EXPECT_EQ(ringColumnsRead(kWidth, kWidth, 3).start, overlapColumns(kWidth).keptInSecond.start);
}

TEST(StitchRing, RejectsArgumentsThatDoNotFitEvenWhenOnlyAFlowThreadFindsOut) {
  // The exports hand six images of the grid's size; a failure can still start in a flow thread,
  // as with 2 x 40 cut-outs, which the flow jobs, two threads down, refuse.
  std::vector<cv::Mat> tiny(2, cv::Mat(40, 12, CV_8UC4, cv::Scalar::all(255)));
  cv::Mat panorama, lower;
  EXPECT_THROW(stitchRing(panorama, tiny, 60.0f, 2, 12, 40), Failure);
  std::vector<cv::Mat> six(6, flat({10, 20, 30})), five(5, flat({10, 20, 30}));
  EXPECT_THROW(stitchTwoRings(panorama, six, lower, five, 60.0f, 6, kWidth, kHeight), Failure);
}

// The lower panorama as the contract defines it: every lower band interpolated from the lower
// ring's cut-outs with the flows the upper ring's overlap jobs give, joined and resized.
cv::Mat lowerPanoramaFromUpperFlows(const std::vector<cv::Mat>& upper,
                                    const std::vector<cv::Mat>& lower) {
  std::vector<cv::Mat> bands;
  for (int i = 0; i < 6; ++i) {
    SeamOverlap upperPair, lowerPair;
    runOverlapFlowJob(upper[i], upper[(i + 1) % 6], upperPair, false);
    cutOutOverlap(lower[i], lower[(i + 1) % 6], lowerPair);
    cv::Mat band;
    interpolateSeamBand(lowerPair.firstCut, lowerPair.secondCut, upperPair.flowFirstToSecond,
                        upperPair.flowSecondToFirst, 6, kWidth, kHeight, band);
    bands.push_back(band);
  }
  cv::Mat joined, colour, panorama;
  cv::hconcat(bands, joined);
  cv::cvtColor(joined, colour, cv::COLOR_BGRA2BGR);
  cv::resize(colour, panorama, cv::Size(kWidth, kHeight), 0, 0, cv::INTER_LINEAR);
  return panorama;
}

TEST(StitchTwoRings, LowerRingIsWarpedWithTheUpperRingsFlows) {
  std::vector<cv::Mat> upper = texturedRing();
  // The lower ring is the upper one at half the brightness.
  std::vector<cv::Mat> lower(6), lowerAlone(6);
  for (int i = 0; i < 6; ++i) {
    cv::multiply(upper[i], cv::Scalar(0.5, 0.5, 0.5, 1.0), lower[i]);
    lowerAlone[i] = lower[i].clone();
  }
  cv::Mat upperPanorama, lowerPanorama;
  stitchTwoRings(upperPanorama, upper, lowerPanorama, lower, 60.0f, 6, kWidth, kHeight);
  ASSERT_EQ(lowerPanorama.size(), cv::Size(kWidth, kHeight));
  ASSERT_EQ(lowerPanorama.type(), CV_8UC3);

  // Both rings were handed back equalised and as BGRA; the flow jobs are deterministic.
  EXPECT_EQ(cv::norm(lowerPanorama, lowerPanoramaFromUpperFlows(upper, lower), cv::NORM_INF), 0.0);
  cv::Mat upperAlone;
  std::vector<cv::Mat> upperAgain = texturedRing();
  stitchRing(upperAlone, upperAgain, 60.0f, 6, kWidth, kHeight);
  EXPECT_EQ(cv::norm(upperPanorama, upperAlone, cv::NORM_INF), 0.0);

  // The test can tell: with flows of its own the lower ring comes out differently.
  cv::Mat ownFlows;
  stitchRing(ownFlows, lowerAlone, 60.0f, 6, kWidth, kHeight);
  EXPECT_GT(cv::norm(ownFlows, lowerPanorama, cv::NORM_INF), 0.0);
}

// Six flat images of values v(i): each pair ratio is v(i) / v(i + 1), so every image ends at
// v(0) / N. Image 0 is brighter right of its centre than left of it, which leaves a closing
// error g(6) = 1.5 around the ring: its left columns take g(6) / N, its right ones 1 / N.
TEST(RingBrightness, EqualisesAroundTheRingAndSpreadsTheClosingErrorOverImageZero) {
  std::vector<cv::Mat> ring;
  for (int v : {100, 120, 90, 110, 130, 80}) ring.push_back(flat(cv::Scalar::all(v), 77));
  ring[0].colRange(kWidth / 2, kWidth).setTo(cv::Scalar(150, 150, 150, 77));
  equaliseRingBrightness(ring, 6, kWidth, kHeight);
  // g(k) = 150 / v(k), g(6) = 1.5; without the smallest (150 / 130) and largest (150 / 80):
  const double level = 150.0 / ((150.0 / 120 + 150.0 / 90 + 150.0 / 110 + 1.5) * 0.25);
  for (int k = 0; k < 6; ++k) {
    cv::Mat expected = flat(cv::Scalar::all(level), 77);
    if (k == 0) ring[k].colRange(74, 118).copyTo(expected.colRange(74, 118));  // the ramp
    EXPECT_LE(cv::norm(ring[k], expected, cv::NORM_INF), 1.0) << "image " << k;
  }
}

}  // namespace
}  // namespace velmora
