// The agreement measures of a panorama with its truth: the seen region's rim left out, each seam
// band measured on its own columns.
#include "sim/stitch_agreement.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "sim/builtin_scene.h"

namespace velmora::sim {
namespace {

TEST(StitchAgreement, BandsMeasureTheirOwnColumnsOverTheSeenInteriorOnly) {
  cv::Mat truth = makeBuiltinScene(600, 300);
  cv::GaussianBlur(truth, truth, cv::Size(0, 0), 1.0);
  cv::Mat seen = cv::Mat::zeros(truth.size(), CV_8U);
  seen.rowRange(50, 250) = 255;

  // Rubbish outside the seen region and on its rim (out of reach of the measures' windows) is
  // not measured; a smudge in band 3 lowers band 3 and the whole, and nothing else.
  cv::Mat panorama = truth.clone();
  panorama.rowRange(0, 52).setTo(cv::Scalar(0, 0, 255));
  cv::Mat smudge = panorama(cv::Rect(320, 120, 40, 40));
  cv::GaussianBlur(smudge, smudge, cv::Size(0, 0), 4.0);

  const PanoramaAgreement agreement = measureAgreement(panorama, truth, seen);
  EXPECT_EQ(agreement.whole.pixels, 600 * (200 - 2 * kSeenRimPixels));
  for (int band = 0; band < kHeadPositions; ++band) {
    SCOPED_TRACE(band);
    EXPECT_EQ(agreement.bands[band].pixels, 100 * (200 - 2 * kSeenRimPixels));
    if (band == 3) {
      EXPECT_LT(agreement.bands[band].psnr, 40.0);
      EXPECT_LT(agreement.bands[band].ssim, 0.99);
    } else {
      EXPECT_GT(agreement.bands[band].psnr, 90.0);
      EXPECT_NEAR(agreement.bands[band].ssim, 1.0, 1e-6);
    }
  }
  EXPECT_LT(agreement.whole.psnr, agreement.bands[0].psnr);
  EXPECT_GT(agreement.whole.psnr, agreement.bands[3].psnr);

  // Nothing seen: nothing measured, no figures.
  const PanoramaAgreement blind =
      measureAgreement(panorama, truth, cv::Mat::zeros(seen.size(), CV_8U));
  EXPECT_EQ(blind.whole.pixels, 0);
  EXPECT_EQ(blind.whole.psnr, 0.0);
  EXPECT_THROW(measureAgreement(panorama.colRange(0, 300), truth, seen), std::exception);
}

}  // namespace
}  // namespace velmora::sim
