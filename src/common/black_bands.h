// The black bands above and below a finished panorama, which restore the host's frame.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

namespace velmora {

// Rows of one band for a panorama of `panoramaHeight` rows: int(height x 0.12), the product in
// single precision and truncated (100 -> 12, 1000 -> 120, 8 -> 0).
int blackBandRows(uint32_t panoramaHeight);

// Stacks a black band of `bandRows` rows, `image` and the same band again, vertically. The image
// must be 8-bit three-channel and exactly `panoramaWidth` columns wide (the band's width);
// otherwise throws Failure naming both widths. A band of 0 rows returns a copy of the image.
cv::Mat addBlackBands(const cv::Mat& image, int bandRows, int panoramaWidth);

}  // namespace velmora
