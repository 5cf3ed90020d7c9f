// The float luma/chroma space the fusion blends in and the white balance keeps its luma in.
// Forward and inverse use fixed coefficients; the inverse keeps its short two-digit coefficients,
// so a round trip moves colours very slightly.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// One pixel, B G R in (any scale) to Y U V in the same scale. Reads all of bgr before writing,
// so bgr and yuv may point to the same three floats.
inline void bgrPixelToYuv(const float* bgr, float* yuv) {
  const float b = bgr[0];
  const float g = bgr[1];
  const float r = bgr[2];
  yuv[0] = 0.587f * g + 0.299f * r + 0.114f * b;
  yuv[1] = 0.436f * b - (0.289f * g + 0.147f * r);
  yuv[2] = 0.615f * r - 0.515f * g - 0.1f * b;
}

// One pixel, Y U V to B G R. Reads all of yuv before writing; yuv and bgr may be the same.
inline void yuvPixelToBgr(const float* yuv, float* bgr) {
  const float y = yuv[0];
  const float u = yuv[1];
  const float v = yuv[2];
  bgr[0] = y + 2.03f * u;
  bgr[1] = y - 0.39f * u - 0.58f * v;
  bgr[2] = y + 1.14f * v;
}

// Converts a CV_32FC3 B G R image to Y U V: dst becomes CV_32FC3 of src's size. dst may be src
// itself (the conversion is done in place then). Any other type raises cv::Exception.
void bgrToYuv(const cv::Mat& src, cv::Mat& dst);

// Converts a CV_32FC3 Y U V image back to B G R, with the same rules as bgrToYuv.
void yuvToBgr(const cv::Mat& src, cv::Mat& dst);

}  // namespace velmora
