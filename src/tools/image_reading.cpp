#include "tools/image_reading.h"

#include <fstream>
#include <opencv2/imgcodecs.hpp>

namespace velmora {

cv::Mat readColourImageIfPresent(const std::string& path) {
  if (!std::ifstream(path, std::ios::binary).is_open()) return cv::Mat();
  return cv::imread(path, cv::IMREAD_COLOR);
}

}  // namespace velmora
