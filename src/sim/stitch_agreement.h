// How closely a stitched panorama agrees with its ground truth where the shots see the scene:
// PSNR and SSIM over the seen region without its rim, for the whole panorama and for each of
// its six seam bands.
#pragma once

#include <array>
#include <opencv2/core.hpp>

#include "sim/rig_frame.h"

namespace velmora::sim {

// The seen region's rim, where a seam band's two shots do not both reach, is this many pixels
// wide; measures leave it out so that it does not dominate them.
inline constexpr int kSeenRimPixels = 8;

// The cells of a seen mask (255 seen) that lie at least `rim` pixels inside the seen region
// (a 3x3 erosion `rim` times). CV_8UC1, 255 inside.
cv::Mat seenInterior(const cv::Mat& seen, int rim = kSeenRimPixels);

// PSNR in dB of two 8-bit images of one size and type over the mask's non-zero pixels; 0 for an
// empty mask.
double maskedPsnr(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask);

struct Agreement {
  double psnr = 0.0;
  // Mean structural similarity: the usual index (11x11 Gaussian window, sigma 1.5, constants
  // (0.01 x 255)^2 and (0.03 x 255)^2) per pixel and channel, averaged over the channels.
  double ssim = 0.0;
  // Pixels measured; 0 when the region holds none (the figures are then 0).
  int pixels = 0;
};

struct PanoramaAgreement {
  Agreement whole;
  // Band i: columns i x W / 6 to (i + 1) x W / 6, where the ring joins shot i to shot i + 1.
  std::array<Agreement, kHeadPositions> bands;
};

// Compares a panorama with its truth (both 8-bit BGR, one size) over seenInterior(seen). Throws
// Failure when the sizes differ.
PanoramaAgreement measureAgreement(const cv::Mat& panorama, const cv::Mat& truth,
                                   const cv::Mat& seen);

// The columns of seam band i in a panorama `width` columns wide.
cv::Range seamBandColumns(int width, int band);

}  // namespace velmora::sim
