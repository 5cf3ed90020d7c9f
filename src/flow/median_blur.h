// The 5 x 5 median of a float image, value for value as cv::medianBlur with a 5 x 5 window
// computes it, with the work of neighbouring windows shared instead of sorting 25 values per
// pixel.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// Writes into `filtered` the median of the 5 x 5 window around every pixel, channel by channel,
// of `image` (32-bit float, 1 to 4 channels, any size of at least one pixel). Rows and columns
// outside the image repeat the nearest edge (a replicated border). `filtered` takes the image's
// size and type; a buffer already of that size and type is written in place and must not be
// `image` itself.
// - Any exact selection gives the same median value, so the result is bit for bit that of
//   cv::medianBlur(image, filtered, 5), except where ties between +0 and -0 could let a sorting
//   order pick either sign. An image holding a negative zero or a NaN is therefore handed to
//   cv::medianBlur itself.
// - The widest vector unit the processor has does the work; `widestUnit` false keeps the
//   baseline build's code (for tests).
// Throws Failure when the type does not fit or `filtered` shares `image`'s data.
void medianBlur5x5(const cv::Mat& image, cv::Mat& filtered, bool widestUnit = true);

}  // namespace velmora
