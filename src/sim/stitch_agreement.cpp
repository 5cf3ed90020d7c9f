#include "sim/stitch_agreement.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "common/status.h"

namespace velmora::sim {

namespace {

constexpr double kSsimC1 = (0.01 * 255) * (0.01 * 255);
constexpr double kSsimC2 = (0.03 * 255) * (0.03 * 255);
constexpr double kSsimSigma = 1.5;
const cv::Size kSsimWindow(11, 11);

cv::Mat localMean(const cv::Mat& image) {
  cv::Mat mean;
  cv::GaussianBlur(image, mean, kSsimWindow, kSsimSigma);
  return mean;
}

// The per-pixel structural similarity of two single-channel float images.
cv::Mat ssimMap(const cv::Mat& x, const cv::Mat& y) {
  const cv::Mat mx = localMean(x), my = localMean(y);
  const cv::Mat mxx = mx.mul(mx), myy = my.mul(my), mxy = mx.mul(my);
  const cv::Mat vx = localMean(x.mul(x)) - mxx;
  const cv::Mat vy = localMean(y.mul(y)) - myy;
  const cv::Mat cxy = localMean(x.mul(y)) - mxy;
  cv::Mat numerator = (2 * mxy + kSsimC1).mul(2 * cxy + kSsimC2);
  cv::Mat denominator = (mxx + myy + kSsimC1).mul(vx + vy + kSsimC2);
  cv::Mat map;
  cv::divide(numerator, denominator, map);
  return map;
}

// SSIM per pixel averaged over the channels.
cv::Mat channelMeanSsim(const cv::Mat& a, const cv::Mat& b) {
  std::vector<cv::Mat> as, bs;
  cv::split(a, as);
  cv::split(b, bs);
  cv::Mat sum = cv::Mat::zeros(a.size(), CV_32F);
  for (size_t c = 0; c < as.size(); ++c) {
    cv::Mat x, y;
    as[c].convertTo(x, CV_32F);
    bs[c].convertTo(y, CV_32F);
    sum += ssimMap(x, y);
  }
  return sum / static_cast<double>(as.size());
}

Agreement agreementOver(const cv::Mat& a, const cv::Mat& b, const cv::Mat& ssim,
                        const cv::Mat& mask) {
  Agreement agreement;
  agreement.pixels = cv::countNonZero(mask);
  if (agreement.pixels == 0) return agreement;
  agreement.psnr = maskedPsnr(a, b, mask);
  agreement.ssim = cv::mean(ssim, mask)[0];
  return agreement;
}

}  // namespace

cv::Mat seenInterior(const cv::Mat& seen, int rim) {
  cv::Mat interior = seen == 255;
  if (rim > 0) cv::erode(interior, interior, cv::Mat(), cv::Point(-1, -1), rim);
  return interior;
}

double maskedPsnr(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask) {
  const double count = static_cast<double>(a.channels()) * cv::countNonZero(mask);
  if (count == 0) return 0.0;
  const double mse = cv::norm(a, b, cv::NORM_L2SQR, mask) / count;
  return 10.0 * std::log10(255.0 * 255.0 / std::max(mse, 1e-10));
}

cv::Range seamBandColumns(int width, int band) {
  return cv::Range(band * width / kHeadPositions, (band + 1) * width / kHeadPositions);
}

PanoramaAgreement measureAgreement(const cv::Mat& panorama, const cv::Mat& truth,
                                   const cv::Mat& seen) {
  if (panorama.size() != truth.size() || seen.size() != truth.size() ||
      panorama.type() != truth.type()) {
    throw Failure("The panorama, its truth and its seen region differ in size or type.");
  }
  const cv::Mat interior = seenInterior(seen);
  const cv::Mat ssim = channelMeanSsim(panorama, truth);
  PanoramaAgreement result;
  result.whole = agreementOver(panorama, truth, ssim, interior);
  for (int band = 0; band < kHeadPositions; ++band) {
    const cv::Range columns = seamBandColumns(panorama.cols, band);
    result.bands[band] = agreementOver(panorama.colRange(columns), truth.colRange(columns),
                                       ssim.colRange(columns), interior.colRange(columns));
  }
  return result;
}

}  // namespace velmora::sim
