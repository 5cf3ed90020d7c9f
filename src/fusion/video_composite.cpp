#include "fusion/video_composite.h"

#include "common/feathered_rectangle.h"

namespace velmora {

cv::Mat compositeLowerView(const cv::Mat& upper, const cv::Mat& lower, int width, int height) {
  const auto w = static_cast<float>(width);
  const auto h = static_cast<float>(height);
  const int left = static_cast<int>(w * 0.41666666f);
  const int top = static_cast<int>(h * 0.2611111f);
  const int right = left + static_cast<int>(w * 0.16666667f);
  const int bottom = top + static_cast<int>(h * 0.48333332f);
  const int feather = static_cast<int>(width * 0.3);

  cv::Mat result = upper.clone();
  blendFeathered(result, lower, FeatherBox{left, top, right, bottom}, feather,
                 cv::Rect(0, 0, width, height) & cv::Rect(0, 0, result.cols, result.rows));
  return result;
}

}  // namespace velmora
