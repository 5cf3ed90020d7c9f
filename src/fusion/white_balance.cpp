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
  const int width = image.cols;
  std::vector<cv::Mat> bytes(3);
  std::vector<cv::Mat> values(3);
  for (int c = 0; c < 3; ++c) {
    bytes[c].create(1, width, CV_8U);
    values[c].create(1, width, CV_32F);
  }
  std::vector<float> gained(3 * static_cast<size_t>(width));
  for (int y = 0; y < image.rows; ++y) {
    cv::split(image.row(y), bytes);
    const uchar* b = bytes[0].ptr<uchar>();
    const uchar* g = bytes[1].ptr<uchar>();
    const uchar* r = bytes[2].ptr<uchar>();
    float* gainedB = gained.data();
    float* gainedG = gainedB + width;
    float* gainedR = gainedG + width;
    for (int x = 0; x < width; ++x) {
      gainedB[x] = scaled[0][b[x]];
      gainedG[x] = scaled[1][g[x]];
      gainedR[x] = scaled[2][r[x]];
    }
    float* outB = values[0].ptr<float>();
    float* outG = values[1].ptr<float>();
    float* outR = values[2].ptr<float>();
    for (int x = 0; x < width; ++x) {
      const float original[3] = {static_cast<float>(b[x]), static_cast<float>(g[x]),
                                 static_cast<float>(r[x])};
      float before[3];
      bgrPixelToYuv(original, before);
      float pixel[3] = {gainedB[x], gainedG[x], gainedR[x]};
      bgrPixelToYuv(pixel, pixel);
      pixel[0] = before[0];
      yuvPixelToBgr(pixel, pixel);
      outB[x] = pixel[0];
      outG[x] = pixel[1];
      outR[x] = pixel[2];
    }
    // convertTo rounds to the nearest byte and saturates, as saturate_cast does.
    for (int c = 0; c < 3; ++c) values[c].convertTo(bytes[c], CV_8U);
    cv::merge(bytes, image.row(y));
  }
}

}  // namespace velmora
