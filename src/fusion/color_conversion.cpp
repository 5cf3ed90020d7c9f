#include "fusion/color_conversion.h"

namespace velmora {
namespace {

template <void (*convertPixel)(const float*, float*)>
void convertImage(const cv::Mat& src, cv::Mat& dst) {
  CV_Assert(src.type() == CV_32FC3);
  // When dst is src, create() keeps the buffer and every pixel is read before it is written.
  // A distinct dst that merely has the wrong size gets its own buffer.
  const cv::Mat source = src;  // keeps the pixels alive should dst currently share them
  dst.create(source.size(), CV_32FC3);
  const int width = source.cols;
  for (int y = 0; y < source.rows; ++y) {
    const float* in = source.ptr<float>(y);
    float* out = dst.ptr<float>(y);
    for (int x = 0; x < width; ++x) convertPixel(in + 3 * x, out + 3 * x);
  }
}

}  // namespace

void bgrToYuv(const cv::Mat& src, cv::Mat& dst) {
  convertImage<bgrPixelToYuv>(src, dst);
}

void yuvToBgr(const cv::Mat& src, cv::Mat& dst) {
  convertImage<yuvPixelToBgr>(src, dst);
}

}  // namespace velmora
