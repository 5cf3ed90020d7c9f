#include "flow/cubic_remap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common/status.h"

namespace velmora {
namespace {

// Positions are resolved to 1/32 pixel; weights are fixed point with 15 fraction bits.
constexpr int kFractionBits = 5;
constexpr int kFractions = 1 << kFractionBits;
constexpr int kWeightBits = 15;
constexpr int kWeightOne = 1 << kWeightBits;

// The cubic convolution kernel (a = -0.75) at the four taps around fraction x, in 32-bit float.
void cubicCoefficients(float x, float* coefficients) {
  const float a = -0.75f;
  coefficients[0] = ((a * (x + 1) - 5 * a) * (x + 1) + 8 * a) * (x + 1) - 4 * a;
  coefficients[1] = ((a + 2) * x - (a + 3)) * x * x + 1;
  coefficients[2] = ((a + 2) * (1 - x) - (a + 3)) * (1 - x) * (1 - x) + 1;
  coefficients[3] = 1.f - coefficients[0] - coefficients[1] - coefficients[2];
}

// A float rounded to the nearest integer, halves to even, as the processor's conversion does
// (NaN and out-of-range values give INT_MIN).
inline int roundToInt(float value) {
#if defined(__SSE2__)
  return _mm_cvtss_si32(_mm_set_ss(value));
#else
  return static_cast<int>(std::nearbyint(value));
#endif
}

inline int16_t saturateToShort(int value) {
  return static_cast<int16_t>(value < -32768 ? -32768 : value > 32767 ? 32767 : value);
}

inline uchar saturateToByte(int value) {
  return static_cast<uchar>(value < 0 ? 0 : value > 255 ? 255 : value);
}

// The 16 weights (row by row) of every pair of fractions, index (fy * 32 + fx): the products of
// the kernel at both fractions, rounded, then the rounding's excess taken from (or its shortfall
// given to) the extreme weight among the lower right 2 x 2 taps.
struct WeightTable {
  std::array<std::array<int16_t, 16>, kFractions * kFractions> weights;

  WeightTable() {
    float kernel[kFractions][4];
    for (int i = 0; i < kFractions; ++i) cubicCoefficients(i * (1.f / kFractions), kernel[i]);
    for (int fy = 0; fy < kFractions; ++fy) {
      for (int fx = 0; fx < kFractions; ++fx) {
        int16_t* w = weights[fy * kFractions + fx].data();
        int sum = 0;
        for (int row = 0; row < 4; ++row) {
          for (int column = 0; column < 4; ++column) {
            const float product = kernel[fy][row] * kernel[fx][column];
            w[row * 4 + column] = saturateToShort(roundToInt(product * kWeightOne));
            sum += w[row * 4 + column];
          }
        }
        if (sum == kWeightOne) continue;
        int smallest = 2 * 4 + 2;
        int largest = 2 * 4 + 2;
        for (int row = 2; row < 4; ++row) {
          for (int column = 2; column < 4; ++column) {
            const int k = row * 4 + column;
            if (w[k] < w[smallest]) {
              smallest = k;
            } else if (w[k] > w[largest]) {
              largest = k;
            }
          }
        }
        const int excess = sum - kWeightOne;
        if (excess < 0) {
          w[largest] = static_cast<int16_t>(w[largest] - excess);
        } else {
          w[smallest] = static_cast<int16_t>(w[smallest] - excess);
        }
      }
    }
  }
};

const WeightTable& weightTable() {
  static const WeightTable table;
  return table;
}

// Where a map position reads: the top-left tap (one pixel up and left of the whole pixel) and
// the weight table's index.
struct Tap {
  int x, y;
  int fraction;
};

inline Tap tapOf(float mapX, float mapY) {
  const int x = roundToInt(mapX * kFractions);
  const int y = roundToInt(mapY * kFractions);
  return {saturateToShort(x >> kFractionBits) - 1, saturateToShort(y >> kFractionBits) - 1,
          (y & (kFractions - 1)) * kFractions + (x & (kFractions - 1))};
}

inline int roundedChannel(int sum) {
  return saturateToByte((sum + (kWeightOne >> 1)) >> kWeightBits);
}

// A pixel whose 4 x 4 taps are not all inside the image: the taps inside alone.
void cubicPixelAtBorder(const cv::Mat& image, const Tap& tap, const int16_t* w, uchar* out) {
  int sums[4] = {0, 0, 0, 0};
  for (int row = 0; row < 4; ++row) {
    const int y = tap.y + row;
    if (y < 0 || y >= image.rows) continue;
    const uchar* line = image.ptr<uchar>(y);
    for (int column = 0; column < 4; ++column) {
      const int x = tap.x + column;
      if (x < 0 || x >= image.cols) continue;
      for (int c = 0; c < 4; ++c) sums[c] += line[4 * x + c] * w[row * 4 + column];
    }
  }
  for (int c = 0; c < 4; ++c) out[c] = static_cast<uchar>(roundedChannel(sums[c]));
}

// A pixel whose taps are all inside, one channel sum at a time.
inline void cubicPixelPlain(const uchar* topLeft, std::size_t step, const int16_t* w, uchar* out) {
  for (int c = 0; c < 4; ++c) {
    int sum = 0;
    for (int row = 0; row < 4; ++row) {
      const uchar* line = topLeft + row * step + c;
      for (int column = 0; column < 4; ++column) sum += line[4 * column] * w[row * 4 + column];
    }
    out[c] = static_cast<uchar>(roundedChannel(sum));
  }
}

#if defined(__SSE2__)
// The same sums with the four channels side by side: per tap row, the bytes of pixels 0 and 1
// and of pixels 2 and 3 interleaved channel by channel and multiplied pairwise with their two
// weights (integer sums, so the order of the additions does not matter).
struct VectorWeights {
  // Per tap row: (w0, w1) repeated and (w2, w3) repeated.
  __m128i rows[kFractions * kFractions][8];

  VectorWeights() {
    const WeightTable& table = weightTable();
    for (int k = 0; k < kFractions * kFractions; ++k) {
      const int16_t* w = table.weights[k].data();
      for (int row = 0; row < 4; ++row) {
        rows[k][2 * row] = _mm_set_epi16(w[row * 4 + 1], w[row * 4], w[row * 4 + 1], w[row * 4],
                                         w[row * 4 + 1], w[row * 4], w[row * 4 + 1], w[row * 4]);
        rows[k][2 * row + 1] =
            _mm_set_epi16(w[row * 4 + 3], w[row * 4 + 2], w[row * 4 + 3], w[row * 4 + 2],
                          w[row * 4 + 3], w[row * 4 + 2], w[row * 4 + 3], w[row * 4 + 2]);
      }
    }
  }
};

const VectorWeights& vectorWeights() {
  static const VectorWeights weights;
  return weights;
}

inline void cubicPixelVector(const uchar* topLeft, std::size_t step, const __m128i* w, uchar* out) {
  const __m128i zero = _mm_setzero_si128();
  __m128i sums = zero;
  for (int row = 0; row < 4; ++row) {
    const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(topLeft + row * step));
    const __m128i first = _mm_unpacklo_epi8(pixels, _mm_srli_si128(pixels, 4));
    const __m128i second = _mm_unpacklo_epi8(_mm_srli_si128(pixels, 8), _mm_srli_si128(pixels, 12));
    const __m128i both = _mm_unpacklo_epi64(first, second);
    sums = _mm_add_epi32(sums, _mm_madd_epi16(_mm_unpacklo_epi8(both, zero), w[2 * row]));
    sums = _mm_add_epi32(sums, _mm_madd_epi16(_mm_unpackhi_epi8(both, zero), w[2 * row + 1]));
  }
  sums = _mm_srai_epi32(_mm_add_epi32(sums, _mm_set1_epi32(kWeightOne >> 1)), kWeightBits);
  const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(sums, zero), zero);
  const int value = _mm_cvtsi128_si32(bytes);
  std::memcpy(out, &value, 4);
}
#endif

}  // namespace

void remapCubicBgra(const cv::Mat& image, const cv::Mat& map, cv::Mat& warped, bool vectorised) {
  if (image.type() != CV_8UC4 || map.type() != CV_32FC2 || image.empty()) {
    throw Failure("Cubic remap: the image must be 8-bit BGRA and the map CV_32FC2.");
  }
  warped.create(map.size(), CV_8UC4);
  const WeightTable& table = weightTable();
  const std::size_t step = image.step[0];
  // Taps (x, y) with 0 <= x <= cols - 4 and 0 <= y <= rows - 4 lie wholly inside.
  const unsigned insideColumns = static_cast<unsigned>(std::max(image.cols - 3, 0));
  const unsigned insideRows = static_cast<unsigned>(std::max(image.rows - 3, 0));
#if defined(__SSE2__)
  const VectorWeights* vector = vectorised ? &vectorWeights() : nullptr;
#else
  (void)vectorised;
#endif
  for (int y = 0; y < map.rows; ++y) {
    const cv::Vec2f* positions = map.ptr<cv::Vec2f>(y);
    uchar* out = warped.ptr<uchar>(y);
    for (int x = 0; x < map.cols; ++x, out += 4) {
      const Tap tap = tapOf(positions[x][0], positions[x][1]);
      if (static_cast<unsigned>(tap.x) >= insideColumns ||
          static_cast<unsigned>(tap.y) >= insideRows) {
        cubicPixelAtBorder(image, tap, table.weights[tap.fraction].data(), out);
        continue;
      }
      const uchar* topLeft = image.data + tap.y * step + 4 * static_cast<std::size_t>(tap.x);
#if defined(__SSE2__)
      if (vector != nullptr) {
        cubicPixelVector(topLeft, step, vector->rows[tap.fraction], out);
        continue;
      }
#endif
      cubicPixelPlain(topLeft, step, table.weights[tap.fraction].data(), out);
    }
  }
}

}  // namespace velmora
