// The bounding box of the structure inside a repair rectangle.
#pragma once

#include <opencv2/core.hpp>

#include "common/feathered_rectangle.h"

namespace velmora {

// Edges of the panorama's pixels inside `rectangle` (grey, 3 x 3 box blur, Canny with thresholds
// 30 and 20, aperture 3, L1 gradient), bounded by the smallest and largest edge column and row,
// in panorama coordinates. Without any edge the box keeps its start values (left 20000,
// right -1, top 10000, bottom -1) shifted by the rectangle's corner. The rectangle must lie
// inside the panorama.
FeatherBox edgeBoundingBox(const cv::Mat& panorama, const cv::Rect& rectangle);

}  // namespace velmora
