// A weight mask that is 0 inside a rectangle and rises to 1 over a feather band around it, and
// the blend it drives. Used wherever content of one image is pasted into another.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// Box edges in pixel coordinates; the inside is left < x < right, top < y < bottom (strict).
struct FeatherBox {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;
};

// Weight of pixel (x, y) for the box and a feather band of `feather` pixels:
//   strictly inside the box: 0;
//   in the bands beside an edge (left < x < right, top - feather < y <= top: (top - y) / feather;
//   bottom <= y < bottom + feather: (y - bottom) / feather; likewise left and right of it);
//   in the four corner squares: the distance to the box's nearest corner / feather, at most 1;
//   anywhere else: 1.
float featherWeight(const FeatherBox& box, float feather, int x, int y);

// The part of an image of `size` whose weights can differ from 1 (empty when none can).
cv::Rect featherRegion(const FeatherBox& box, int feather, cv::Size size);

// Blends `source` into `target` (both 8-bit, 3 channels, same size) inside the region of `limit`
// (a rectangle within both images): every channel becomes trunc(source x (1 - w) + target x w)
// in single precision, w the feather weight. Pixels whose weight is 1 keep their value.
void blendFeathered(cv::Mat& target, const cv::Mat& source, const FeatherBox& box, int feather,
                    cv::Rect limit);

}  // namespace velmora
