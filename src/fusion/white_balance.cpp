#include "fusion/white_balance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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
    int x = 0;
#if defined(__SSE2__)
    // Four pixels at a time: the same operations in the same order per lane.
    static const std::array<float, 256> kByteValues = [] {
      std::array<float, 256> values{};
      for (int v = 0; v < 256; ++v) values[v] = static_cast<float>(v);
      return values;
    }();
    const auto lanes = [&pixel](const float* table, int c) {
      return _mm_setr_ps(table[pixel[c]], table[pixel[3 + c]], table[pixel[6 + c]],
                         table[pixel[9 + c]]);
    };
    const auto times = [](float factor, __m128 value) {
      return _mm_mul_ps(_mm_set1_ps(factor), value);
    };
    for (; x + 4 <= width; x += 4, pixel += 12) {
      const __m128 b = lanes(kByteValues.data(), 0);
      const __m128 g = lanes(kByteValues.data(), 1);
      const __m128 r = lanes(kByteValues.data(), 2);
      const __m128 luma =
          _mm_add_ps(_mm_add_ps(times(0.587f, g), times(0.299f, r)), times(0.114f, b));
      const __m128 gb = lanes(scaled[0].data(), 0);
      const __m128 gg = lanes(scaled[1].data(), 1);
      const __m128 gr = lanes(scaled[2].data(), 2);
      const __m128 u =
          _mm_sub_ps(times(0.436f, gb), _mm_add_ps(times(0.289f, gg), times(0.147f, gr)));
      const __m128 v =
          _mm_sub_ps(_mm_sub_ps(times(0.615f, gr), times(0.515f, gg)), times(0.1f, gb));
      const __m128 out[3] = {_mm_add_ps(luma, times(2.03f, u)),
                             _mm_sub_ps(_mm_sub_ps(luma, times(0.39f, u)), times(0.58f, v)),
                             _mm_add_ps(luma, times(1.14f, v))};
      for (int c = 0; c < 3; ++c) {
        const __m128i rounded = _mm_cvtps_epi32(out[c]);
        const __m128i zero = _mm_setzero_si128();
        const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(rounded, zero), zero);
        const int packed = _mm_cvtsi128_si32(bytes);
        for (int k = 0; k < 4; ++k) pixel[3 * k + c] = static_cast<uchar>(packed >> (8 * k));
      }
    }
#endif
    for (; x < width; ++x, pixel += 3) {
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
