#include "fusion/white_balance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "common/console.h"
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
  CV_Assert(image.type() == CV_8UC3);
  // The capped and truncated channel values depend on the byte alone: one table per channel.
  std::array<std::array<float, 256>, 3> scaled;
  const float gains[3] = {blue, green, red};
  for (int c = 0; c < 3; ++c) {
    for (int v = 0; v < 256; ++v) scaled[c][v] = scaledChannel(gains[c], static_cast<float>(v));
  }
  // One pass over the interleaved pixels: the luma of the original pixel, the chroma of the
  // gained one, back to B G R, each channel rounded to the nearest byte (halves to even) and
  // saturated as cv::Mat::convertTo does.
  const int width = image.cols;
  for (int y = 0; y < image.rows; ++y) {
    uchar* pixel = image.ptr<uchar>(y);
    for (int x = 0; x < width; ++x, pixel += 3) {
      const float original[3] = {static_cast<float>(pixel[0]), static_cast<float>(pixel[1]),
                                 static_cast<float>(pixel[2])};
      float before[3];
      bgrPixelToYuv(original, before);
      float gained[3] = {scaled[0][pixel[0]], scaled[1][pixel[1]], scaled[2][pixel[2]]};
      bgrPixelToYuv(gained, gained);
      gained[0] = before[0];
      yuvPixelToBgr(gained, gained);
      for (int c = 0; c < 3; ++c) pixel[c] = cv::saturate_cast<uchar>(gained[c]);
    }
  }
}

}  // namespace velmora
