// Conversion of float colour values to bytes.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// round(clamp(value, 0, 255)) with halves rounded away from zero; NaN gives 0. Exact for every
// float: the fraction of a value in [0, 255] is computed without rounding error.
inline uchar clampRoundToByte(float value) {
  value = value > 0.0f ? value : 0.0f;
  value = value < 255.0f ? value : 255.0f;
  const int whole = static_cast<int>(value);
  return static_cast<uchar>(whole + (value - static_cast<float>(whole) >= 0.5f ? 1 : 0));
}

}  // namespace velmora
