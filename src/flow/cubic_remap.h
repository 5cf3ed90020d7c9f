// Bicubic resampling of an 8-bit BGRA image through a map of positions, byte for byte as
// cv::remap with INTER_CUBIC and a constant zero border computes it, without that function's
// per-pixel scalar arithmetic.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// Writes into `warped` (CV_8UC4 of the map's size; a view into a larger image is kept as such)
// the image resampled at the map's positions (CV_32FC2, (x, y) per cell):
// - each coordinate is rounded to the nearest 1/32 pixel (halves to even) and split into the
//   whole pixel (saturated to 16 bits) and the 1/32 fraction;
// - the 4 x 4 pixels around the whole pixel are weighted by 16-bit weights, the products of the
//   cubic convolution kernel (a = -0.75) at both fractions times 32768, rounded and made to sum
//   to exactly 32768;
// - taps outside the image contribute nothing (a zero border); every channel's sum is rounded
//   (+16384, shifted right by 15) and saturated to a byte.
// The same bytes on every processor; the plain code path gives them too (`vectorised` false).
// Throws Failure when the types or sizes do not fit.
void remapCubicBgra(const cv::Mat& image, const cv::Mat& map, cv::Mat& warped,
                    bool vectorised = true);

}  // namespace velmora
