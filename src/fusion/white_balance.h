// Colour balance by three per-channel gains (red, green, blue; 1.0 leaves a channel alone):
// limiting a gain triple before use, and applying one to an 8-bit image so that chroma changes
// while luma is kept.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// Limits a gain triple in place and prints it as "rgain: <r> ggain: <g> bgain: <b>" on standard
// output.
// - When no gain, widened to double, exceeds 1.2 the triple is left as it is.
// - Otherwise, when one deviation from 1 is exactly 0, the larger of the other two deviations
//   (the second-named on a tie) is capped to 0.2 and the smaller scaled by the same ratio; then the
//   triple is normalised to green (red / green, 1, blue / green). A green gain of 0 is not guarded
//   and gives infinite red and blue gains.
void limitWhiteBalanceGains(float& red, float& green, float& blue);

// Multiplies the B, G and R channels of an 8-bit BGR image by blue, green and red (capped at
// 255 and truncated to whole values), then restores each pixel's original luma, so that only
// chroma changes; the result is rounded and saturated back to 8 bits in place. An empty image
// stays empty; any type but CV_8UC3 raises cv::Exception.
void applyWhiteBalanceGains(cv::Mat& image, float red, float green, float blue);

}  // namespace velmora
