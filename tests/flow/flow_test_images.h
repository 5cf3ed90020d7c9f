// Synthetic images for the flow engine's tests.
#pragma once

#include <opencv2/core.hpp>

namespace velmora::testing {

// A BGR texture of width x height with structure at several scales (smooth noise of four
// scales plus a few sharp-edged shapes), the same for the same seed.
cv::Mat texture(int width, int height, unsigned seed);

// A window of `source` (BGR), width x height, whose pixel (x, y) shows source position
// (x + left - shiftX, y + top - shiftY) (cubic). Two windows of one source with shifts s and 0
// show the same content displaced by s: first pixel (x, y) matches second (x + sx, y + sy).
cv::Mat shiftedWindow(const cv::Mat& source, int left, int top, int width, int height, float shiftX,
                      float shiftY);

// `bgr` with an alpha channel of `alpha` everywhere.
cv::Mat withAlpha(const cv::Mat& bgr, int alpha = 255);

}  // namespace velmora::testing
