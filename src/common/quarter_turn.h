// Turning an image a quarter counter-clockwise, tile by tile so that both the rows read and the
// columns written stay in the caches.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// The image turned a quarter counter-clockwise, as cv::rotate(ROTATE_90_COUNTERCLOCKWISE) turns
// it: `turned` becomes image.rows wide and image.cols high, its pixel (x, y) image's pixel
// (image.cols - 1 - y, x). Any type of up to 16 bytes per pixel. `turned` keeps its allocator
// (a pooled Mat stays pooled) and must not share image's memory.
void turnQuarterCounterClockwise(const cv::Mat& image, cv::Mat& turned);

}  // namespace velmora
