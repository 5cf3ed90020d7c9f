#include "flow/median_blur.h"

#include <algorithm>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "common/status.h"

// The row kernel is plain C++ that the compiler vectorises, built twice: for the baseline and,
// where the compiler can target it, for AVX2, which runs where the processor has it. Minimum and
// maximum are exact, so both give the same values.
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define VELMORA_MEDIAN_AVX2 1
#define VELMORA_INLINE inline __attribute__((always_inline))
#else
#define VELMORA_INLINE inline
#endif

namespace velmora {
namespace {

// Output positions (floats along a row) filtered together, so that the working rows stay in the
// first-level cache.
constexpr int kChunk = 128;
constexpr int kMaxChannels = 4;
constexpr int kMaxReach = 2 * kMaxChannels;  // floats from a window's centre to its last column

// Compare-exchange: a takes the smaller, b the larger. keepMin and keepMax are the halves of it
// whose other output is never read.
VELMORA_INLINE void order(float& a, float& b) {
  const float low = b < a ? b : a;
  b = b < a ? a : b;
  a = low;
}
VELMORA_INLINE void keepMin(float& a, float b) {
  a = b < a ? b : a;
}
VELMORA_INLINE void keepMax(float a, float& b) {
  b = b < a ? a : b;
}

// A window's five columns are each sorted first (5 values, 9 exchanges). Neighbouring sorted
// columns are merged in pairs (Batcher's odd-even merge of 5 and 5), two neighbouring pairs into
// the ranks 8 to 13 of their 20 values (the same merge of 10 and 10, only the exchanges those
// ranks depend on), and the median is the 13th of those and the window's fifth column. A column
// is sorted once for the five windows that hold it and a pair merged once for two.
struct Rows {
  float sorted[5][kChunk + 2 * kMaxReach];  // the sorted columns, ascending
  float pairs[10][kChunk + kMaxReach];      // two columns d apart, merged
};

VELMORA_INLINE void sortFive(float* m) {
  order(m[0], m[1]);
  order(m[3], m[4]);
  order(m[2], m[4]);
  order(m[2], m[3]);
  order(m[0], m[3]);
  order(m[0], m[2]);
  order(m[1], m[4]);
  order(m[1], m[3]);
  order(m[1], m[2]);
}

// Sorted columns at positions [first, first + count) of the row, every position inside it.
VELMORA_INLINE void sortColumns(const float* const* source, int first, int count,
                                float (*sorted)[kChunk + 2 * kMaxReach], int at) {
  const float* r0 = source[0] + first;
  const float* r1 = source[1] + first;
  const float* r2 = source[2] + first;
  const float* r3 = source[3] + first;
  const float* r4 = source[4] + first;
  for (int t = 0; t < count; ++t) {
    float m[5] = {r0[t], r1[t], r2[t], r3[t], r4[t]};
    sortFive(m);
    for (int k = 0; k < 5; ++k) sorted[k][at + t] = m[k];
  }
}

// The merge of sorted columns t and t + d, in rank order.
VELMORA_INLINE void mergePairs(const Rows& rows, int count, int d,
                               float (*pairs)[kChunk + kMaxReach]) {
  for (int t = 0; t < count; ++t) {
    float m[10];
    for (int k = 0; k < 5; ++k) {
      m[k] = rows.sorted[k][t];
      m[5 + k] = rows.sorted[k][t + d];
    }
    order(m[0], m[5]);
    order(m[4], m[9]);
    order(m[4], m[5]);
    order(m[2], m[7]);
    order(m[2], m[4]);
    order(m[7], m[5]);
    order(m[1], m[6]);
    order(m[3], m[8]);
    order(m[3], m[6]);
    order(m[1], m[2]);
    order(m[3], m[4]);
    order(m[6], m[7]);
    order(m[8], m[5]);
    constexpr int kRankAt[10] = {0, 1, 2, 3, 4, 6, 7, 8, 5, 9};
    for (int r = 0; r < 10; ++r) pairs[r][t] = m[kRankAt[r]];
  }
}

// The median of window t: ranks 8 to 13 of the merge of pairs t and t + 2d (a group of four
// columns), then the 13th smallest of those and the window's fifth column's five (c), which is the
// smallest of q13, max(q12, c1), max(q11, c2), ..., max(q8, c5).
VELMORA_INLINE void selectMedians(const Rows& rows, int count, int d, float* out) {
  const int last = 4 * d;  // the window's fifth column, relative to its group
  for (int t = 0; t < count; ++t) {
    float m[20];
    for (int r = 0; r < 10; ++r) {
      m[r] = rows.pairs[r][t];
      m[10 + r] = rows.pairs[r][t + 2 * d];
    }
    keepMax(m[0], m[10]);
    keepMin(m[8], m[18]);
    order(m[8], m[10]);
    order(m[4], m[14]);
    keepMax(m[4], m[8]);
    keepMin(m[14], m[10]);
    keepMax(m[2], m[12]);
    keepMin(m[6], m[16]);
    order(m[6], m[12]);
    keepMax(m[6], m[8]);
    order(m[12], m[14]);
    keepMax(m[1], m[11]);
    keepMin(m[9], m[19]);
    order(m[9], m[11]);
    order(m[5], m[15]);
    keepMax(m[5], m[9]);
    keepMin(m[15], m[11]);
    keepMax(m[3], m[13]);
    keepMin(m[7], m[17]);
    order(m[7], m[13]);
    order(m[7], m[9]);
    keepMin(m[13], m[15]);
    order(m[7], m[8]);
    order(m[9], m[12]);
    order(m[13], m[14]);
    const float q[6] = {m[7], m[8], m[9], m[12], m[13], m[14]};  // ranks 8..13
    float median = q[5];
    for (int i = 1; i <= 5; ++i) {
      float candidate = rows.sorted[i - 1][t + last];
      keepMax(q[5 - i], candidate);
      keepMin(median, candidate);
    }
    out[t] = median;
  }
}

// The sorted column at position j outside the row, which repeats the edge pixel's channel.
VELMORA_INLINE void sortEdgeColumn(const float* const* source, int length, int channels, int j,
                                   Rows& rows, int at) {
  while (j < 0) j += channels;
  while (j >= length) j -= channels;
  float m[5] = {source[0][j], source[1][j], source[2][j], source[3][j], source[4][j]};
  sortFive(m);
  for (int k = 0; k < 5; ++k) rows.sorted[k][at] = m[k];
}

VELMORA_INLINE void filterRow(const float* const* source, int length, int channels, float* out) {
  Rows rows;
  const int d = channels;
  for (int begin = 0; begin < length; begin += kChunk) {
    const int count = std::min(kChunk, length - begin);
    // Sorted columns from begin - 2d to begin + count + 2d; those outside the row repeat its
    // edge pixel's channel.
    const int first = begin - 2 * d;
    const int end = begin + count + 2 * d;
    const int inside0 = std::min(std::max(first, 0), end);
    const int inside1 = std::max(std::min(end, length), inside0);
    for (int j = first; j < inside0; ++j)
      sortEdgeColumn(source, length, channels, j, rows, j - first);
    sortColumns(source, inside0, inside1 - inside0, rows.sorted, inside0 - first);
    for (int j = inside1; j < end; ++j)
      sortEdgeColumn(source, length, channels, j, rows, j - first);
    mergePairs(rows, count + 2 * d, d, rows.pairs);
    selectMedians(rows, count, d, out + begin);
  }
}

// The row filter as the baseline build's code and as AVX2 code.
void filterRowBaseline(const float* const* source, int length, int channels, float* out) {
  filterRow(source, length, channels, out);
}

#if defined(VELMORA_MEDIAN_AVX2)
__attribute__((target("avx2"))) void filterRowAvx2(const float* const* source, int length,
                                                   int channels, float* out) {
  filterRow(source, length, channels, out);
}
#endif

using RowFilter = void (*)(const float* const*, int, int, float*);

RowFilter rowFilter(bool widest) {
#if defined(VELMORA_MEDIAN_AVX2)
  static const bool avx2 = __builtin_cpu_supports("avx2") != 0;
  if (widest && avx2) return filterRowAvx2;
#else
  (void)widest;
#endif
  return filterRowBaseline;
}

// Whether any value is a NaN or a negative zero.
bool holdsNanOrNegativeZero(const cv::Mat& image) {
  const int length = image.cols * image.channels();
  uint32_t found = 0;
  for (int y = 0; y < image.rows; ++y) {
    const uint32_t* row = image.ptr<uint32_t>(y);
    for (int x = 0; x < length; ++x) {
      const uint32_t bits = row[x];
      found |= static_cast<uint32_t>(bits == 0x80000000u) |
               static_cast<uint32_t>((bits & 0x7fffffffu) > 0x7f800000u);
    }
  }
  return found != 0;
}

}  // namespace

void medianBlur5x5(const cv::Mat& image, cv::Mat& filtered, bool widestUnit) {
  if (image.depth() != CV_32F || image.channels() > kMaxChannels || image.empty()) {
    throw Failure("Median filter: the image must be 32-bit float with 1 to 4 channels.");
  }
  if (!filtered.empty() && filtered.data == image.data) {
    throw Failure("Median filter: the filtered image must not be the image itself.");
  }
  if (holdsNanOrNegativeZero(image)) {
    cv::medianBlur(image, filtered, 5);
    return;
  }
  filtered.create(image.size(), image.type());
  const int length = image.cols * image.channels();
  const int last = image.rows - 1;
  const RowFilter filterRowWith = rowFilter(widestUnit);
  for (int y = 0; y < image.rows; ++y) {
    const float* source[5];
    for (int k = 0; k < 5; ++k)
      source[k] = image.ptr<float>(std::min(std::max(y + k - 2, 0), last));
    filterRowWith(source, length, image.channels(), filtered.ptr<float>(y));
  }
}

}  // namespace velmora
