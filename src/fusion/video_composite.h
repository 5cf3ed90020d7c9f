// The lower camera's view pasted into the middle of the upper panorama, with a feathered border.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// upper and lower are framed panoramas of equal size (8-bit BGR, `width` columns, the grid's
// `height` rows plus the two polar bands). Inside the rectangle at (trunc(W x 0.41666666),
// trunc(H x 0.2611111)) of size trunc(W x 0.16666667) x trunc(H x 0.48333332), the products in
// single precision, the result shows the lower panorama; around it the lower view fades into the
// upper one over trunc(W x 0.3) pixels. Only rows and columns of the W x H grid are touched.
cv::Mat compositeLowerView(const cv::Mat& upper, const cv::Mat& lower, int width, int height);

}  // namespace velmora
