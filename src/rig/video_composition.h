// Composition of the projected video frame into a panorama.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// The field of a W x H equirectangular panorama that the video frame fills: 50 degrees wide and
// 75 high, left edge at 154 degrees of longitude, top 52 degrees below the upper pole. Each of
// left = W x 0.42777777, top = H x 0.2888889, width = W x 0.1388889, height = H x 0.41666666 is
// a single-precision product truncated toward zero. An empty panorama gives an empty rectangle.
cv::Rect compositionRectangle(int width, int height);

// A full copy of `panorama` whose compositionRectangle takes the projected frame's pixels at the
// same positions. Both must be 8-bit three-channel and the projected frame at least as large as
// the panorama in both directions; otherwise throws Failure. An empty panorama gives an empty
// result.
cv::Mat composeProjectedFrame(const cv::Mat& panorama, const cv::Mat& projected);

}  // namespace velmora
