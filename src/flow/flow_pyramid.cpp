#include "flow/flow_pyramid.h"

#include <opencv2/imgproc.hpp>

#include "common/buffer_pool.h"

namespace velmora {

std::vector<cv::Size> pyramidLevelSizes(cv::Size base) {
  std::vector<cv::Size> sizes{base};
  while (sizes.size() < kPyramidMaximumLevels) {
    const cv::Size last = sizes.back();
    // The product is a 32-bit float, the rounding offset is added in double.
    const int height = static_cast<int>(static_cast<float>(last.height) * kPyramidScale + 0.5);
    const int width = static_cast<int>(static_cast<float>(last.width) * kPyramidScale + 0.5);
    if (height < kPyramidMinimumSide || width < kPyramidMinimumSide) break;
    sizes.emplace_back(width, height);
  }
  return sizes;
}

std::vector<cv::Mat> buildPyramid(const cv::Mat& image) {
  const std::vector<cv::Size> sizes = pyramidLevelSizes(image.size());
  std::vector<cv::Mat> levels{image};
  levels.reserve(sizes.size());
  for (std::size_t i = 1; i < sizes.size(); ++i) {
    cv::Mat next = pooledMat();
    cv::resize(levels.back(), next, sizes[i], 0.0, 0.0, cv::INTER_LINEAR);
    levels.push_back(next);
  }
  return levels;
}

}  // namespace velmora
