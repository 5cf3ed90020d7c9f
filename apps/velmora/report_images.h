// The pictures of a report page that the tool draws itself: where a panorama departs from its
// ground truth, and small previews.
#pragma once

#include <opencv2/core.hpp>

namespace velmora::tool {

// Colour-difference levels (mean over the channels) that the heat map's top colour stands for;
// larger errors saturate.
inline constexpr double kHeatMapFullScale = 48.0;

// The per-pixel error of a panorama against its truth (both 8-bit BGR, one size) as a heat map:
// the mean absolute colour difference, 0 to kHeatMapFullScale levels, from black through red and
// yellow to white, where `seen` (CV_8UC1) is 255; dark grey elsewhere. Throws
// std::invalid_argument when the sizes differ.
cv::Mat errorHeatMap(const cv::Mat& panorama, const cv::Mat& truth, const cv::Mat& seen);

// A preview of `image` at most `width` pixels wide (smaller images are kept as they are).
cv::Mat thumbnailOf(const cv::Mat& image, int width = 320);

}  // namespace velmora::tool
