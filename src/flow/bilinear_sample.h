// Bilinear sampling of 32-bit float images for the flow estimator's inner loops.
#pragma once

#include <cstddef>

namespace velmora {

// Where a bilinear sample reads: the top-left cell (column, row) of the 2x2 neighbourhood and the
// fractions (u, v) inside it.
struct BilinearCell {
  int column;
  int row;
  float u;
  float v;
};

// Locates position (x, y) in an image of width x height (both at least 2). x is clamped to
// [0, width - 2] and y to [0, height - 2], first at 0, then at the upper bound, so positions
// outside the image read the nearest border pair and no value outside the image is ever read.
// A NaN coordinate reads as 0.
inline BilinearCell locateBilinear(float x, float y, float maxX, float maxY) {
  x = x > 0.0f ? x : 0.0f;
  x = x < maxX ? x : maxX;
  y = y > 0.0f ? y : 0.0f;
  y = y < maxY ? y : maxY;
  const int column = static_cast<int>(x);
  const int row = static_cast<int>(y);
  return {column, row, x - static_cast<float>(column), y - static_cast<float>(row)};
}

// The bilinear value at a located cell of a float image whose rows are `stride` floats apart:
// s00 + (s01 - s00) u + (s10 - s00) v + (s00 + s11 - s01 - s10) u v, in this order.
inline float sampleAt(const float* image, std::size_t stride, const BilinearCell& cell) {
  const float* top = image + static_cast<std::size_t>(cell.row) * stride + cell.column;
  const float* bottom = top + stride;
  const float s00 = top[0];
  const float s01 = top[1];
  const float s10 = bottom[0];
  const float s11 = bottom[1];
  return s00 + (s01 - s00) * cell.u + (s10 - s00) * cell.v +
         (s00 + s11 - s01 - s10) * cell.u * cell.v;
}

// Bilinear sample of a width x height float image (both at least 2) at (x, y), clamped as above.
inline float sampleBilinear(const float* image, std::size_t stride, int width, int height, float x,
                            float y) {
  return sampleAt(
      image, stride,
      locateBilinear(x, y, static_cast<float>(width - 2), static_cast<float>(height - 2)));
}

}  // namespace velmora
