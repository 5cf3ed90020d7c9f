// How colourful a panorama already is: decides which colour-processing profile it gets.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// Saturation measure of an 8-bit three-channel image, in [0, 1]: the image is first resized to
// 2048 x 1024 (bilinear) whatever its size, then (sum of max(B,G,R) - sum of min(B,G,R)) / sum of
// max(B,G,R) over all pixels, both sums in single precision. A grey image gives 0, an image of
// pure primaries 1, and an all-black image 0/0, which is NaN. Throws Failure for an empty image
// or one that is not CV_8UC3.
float measureSaturation(cv::Mat image);

}  // namespace velmora
