#include "fusion/white_balance.h"

#include <algorithm>
#include <cmath>

#include "api/console.h"
#include "fusion/color_conversion.h"

namespace velmora {
namespace {

// A gain above this (compared in double) makes the limiter act.
constexpr double kGainLimit = 1.2;
// The deviation from 1 that the larger gain is capped to when another gain is exactly 1.
constexpr float kDeviationCap = 0.2f;

// Caps the larger of two deviations (the second on a tie) and scales the other alike.
void capLargerDeviation(float& first, float& second) {
  float& larger = first > second ? first : second;
  float& other = first > second ? second : first;
  const float ratio = static_cast<float>(0.2 / static_cast<double>(larger));
  larger = kDeviationCap;
  other *= ratio;
}

// Gains applied to one channel value: capped at 255, truncated toward zero.
inline float scaledChannel(float gain, float value) {
  return std::trunc(std::min(255.0f, gain * value));
}

}  // namespace

void limitWhiteBalanceGains(float& red, float& green, float& blue) {
  if (static_cast<double>(red) > kGainLimit || static_cast<double>(green) > kGainLimit ||
      static_cast<double>(blue) > kGainLimit) {
    float dr = red - 1.0f;
    float dg = green - 1.0f;
    float db = blue - 1.0f;
    if (dr == 0.0f) {
      capLargerDeviation(dg, db);
    } else if (dg == 0.0f) {
      capLargerDeviation(dr, db);
    } else if (db == 0.0f) {
      capLargerDeviation(dr, dg);
    }
    red = 1.0f + dr;
    green = 1.0f + dg;
    blue = 1.0f + db;
    red = red / green;
    blue = blue / green;
    green = 1.0f;
  }
  console::out("rgain: ", red, " ggain: ", green, " bgain: ", blue);
}

void applyWhiteBalanceGains(cv::Mat& image, float red, float green, float blue) {
  CV_Assert(image.channels() == 3);
  // An 8-bit image is rewritten row by row in place; other depths get a new 8-bit buffer.
  cv::Mat result = image.depth() == CV_8U ? image : cv::Mat(image.size(), CV_8UC3);
  cv::Mat rowValues(1, image.cols, CV_32FC3);
  for (int y = 0; y < image.rows; ++y) {
    image.row(y).convertTo(rowValues, CV_32F);
    const float* in = rowValues.ptr<float>();
    uchar* out = result.ptr<uchar>(y);
    for (int x = 0; x < image.cols; ++x) {
      const float* bgr = in + 3 * x;
      float before[3];
      bgrPixelToYuv(bgr, before);
      float pixel[3] = {scaledChannel(blue, bgr[0]), scaledChannel(green, bgr[1]),
                        scaledChannel(red, bgr[2])};
      bgrPixelToYuv(pixel, pixel);
      pixel[0] = before[0];
      yuvPixelToBgr(pixel, pixel);
      out[3 * x] = cv::saturate_cast<uchar>(pixel[0]);
      out[3 * x + 1] = cv::saturate_cast<uchar>(pixel[1]);
      out[3 * x + 2] = cv::saturate_cast<uchar>(pixel[2]);
    }
  }
  image = result;
}

}  // namespace velmora
