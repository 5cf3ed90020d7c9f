#include "common/saturation.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "common/status.h"

namespace velmora {

namespace {

// The measure always works on a copy of this size, so its cost does not depend on the image.
constexpr int kMeasureColumns = 2048;
constexpr int kMeasureRows = 1024;

}  // namespace

float measureSaturation(cv::Mat image) {
  if (image.empty() || image.type() != CV_8UC3) {
    throw Failure("Saturation: the image is empty or not 8-bit three-channel.");
  }
  cv::Mat resized;
  cv::resize(image, resized, cv::Size(kMeasureColumns, kMeasureRows), 0, 0, cv::INTER_LINEAR);

  float sumOfMaxima = 0.0f;
  float sumOfMinima = 0.0f;
  for (int y = 0; y < resized.rows; ++y) {
    const uchar* pixel = resized.ptr<uchar>(y);
    const uchar* const rowEnd = pixel + 3 * resized.cols;
    for (; pixel != rowEnd; pixel += 3) {
      sumOfMaxima += std::max({pixel[0], pixel[1], pixel[2]});
      sumOfMinima += std::min({pixel[0], pixel[1], pixel[2]});
    }
  }
  return (sumOfMaxima - sumOfMinima) / sumOfMaxima;
}

}  // namespace velmora
