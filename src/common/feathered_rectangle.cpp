#include "common/feathered_rectangle.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace velmora {

namespace {

float distanceToNearestCorner(const FeatherBox& box, int x, int y) {
  float nearest = INFINITY;
  for (int cornerX : {box.left, box.right}) {
    for (int cornerY : {box.top, box.bottom}) {
      const double dx = static_cast<double>(x) - cornerX;
      const double dy = static_cast<double>(y) - cornerY;
      nearest = std::min(nearest, static_cast<float>(std::sqrt(dx * dx + dy * dy)));
    }
  }
  return nearest;
}

}  // namespace

float featherWeight(const FeatherBox& box, float feather, int x, int y) {
  const bool insideColumns = box.left < x && x < box.right;
  const bool insideRows = box.top < y && y < box.bottom;
  const bool aboveBand = box.top - feather < y && y <= box.top;
  const bool belowBand = box.bottom <= y && y < box.bottom + feather;
  const bool leftBand = box.left - feather < x && x <= box.left;
  const bool rightBand = box.right <= x && x < box.right + feather;

  if (insideColumns && insideRows) return 0.0f;
  if (insideColumns && aboveBand) return static_cast<float>(box.top - y) / feather;
  if (insideColumns && belowBand) return static_cast<float>(y - box.bottom) / feather;
  if (insideRows && leftBand) return static_cast<float>(box.left - x) / feather;
  if (insideRows && rightBand) return static_cast<float>(x - box.right) / feather;
  if ((leftBand || rightBand) && (aboveBand || belowBand)) {
    return std::min(1.0f, distanceToNearestCorner(box, x, y) / feather);
  }
  return 1.0f;
}

cv::Rect featherRegion(const FeatherBox& box, int feather, cv::Size size) {
  // 64-bit bounds: host rectangles may carry any 32-bit values.
  const int64_t x0 = std::max<int64_t>(0, int64_t{std::min(box.left, box.right)} - feather + 1);
  const int64_t x1 =
      std::min<int64_t>(size.width, int64_t{std::max(box.left, box.right)} + feather);
  const int64_t y0 = std::max<int64_t>(0, int64_t{std::min(box.top, box.bottom)} - feather + 1);
  const int64_t y1 =
      std::min<int64_t>(size.height, int64_t{std::max(box.top, box.bottom)} + feather);
  if (x0 >= x1 || y0 >= y1) return cv::Rect();
  return cv::Rect(static_cast<int>(x0), static_cast<int>(y0), static_cast<int>(x1 - x0),
                  static_cast<int>(y1 - y0));
}

void blendFeathered(cv::Mat& target, const cv::Mat& source, const FeatherBox& box, int feather,
                    cv::Rect limit) {
  CV_Assert(target.type() == CV_8UC3 && source.type() == CV_8UC3);
  CV_Assert(target.size() == source.size());
  const cv::Rect region = featherRegion(box, feather, target.size()) & limit;
  const auto featherF = static_cast<float>(feather);
  for (int y = region.y; y < region.y + region.height; ++y) {
    uchar* out = target.ptr<uchar>(y);
    const uchar* in = source.ptr<uchar>(y);
    for (int x = region.x; x < region.x + region.width; ++x) {
      const float w = featherWeight(box, featherF, x, y);
      for (int c = 0; c < 3; ++c) {
        out[3 * x + c] = static_cast<uchar>(in[3 * x + c] * (1.0f - w) + out[3 * x + c] * w);
      }
    }
  }
}

}  // namespace velmora
