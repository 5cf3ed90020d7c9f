#include "rig/projection.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common/status.h"
#include "common/worker_threads.h"
#include "common/zeroed_mat.h"

namespace velmora {
namespace {

void requireShot(const cv::Mat& shot, const CameraGeometry& geometry) {
  if (shot.type() != CV_8UC3 || shot.cols != static_cast<int>(geometry.size1) ||
      shot.rows != static_cast<int>(geometry.size2)) {
    throw Failure("Projection: shot of " + std::to_string(shot.cols) + "x" +
                  std::to_string(shot.rows) + " does not fit the camera's " +
                  std::to_string(geometry.size1) + "x" + std::to_string(geometry.size2) + ".");
  }
}

// A cell is projected only when both of its coordinates are non-zero.
inline bool seen(const cv::Vec2f& record) {
  return record[0] != 0.0f && record[1] != 0.0f;
}

// Per table row, the columns [first, end) between the first and the last seen cell; every cell
// outside them stays black. A camera sees about a quarter of the grid, so most of the table is
// never read again.
std::vector<cv::Range> seenColumns(const cv::Mat& table) {
  std::vector<cv::Range> ranges(table.rows);
  for (int i = 0; i < table.rows; ++i) {
    const cv::Vec2f* records = table.ptr<cv::Vec2f>(i);
    int first = 0;
    while (first < table.cols && !seen(records[first])) ++first;
    int end = table.cols;
    while (end > first && !seen(records[end - 1])) --end;
    ranges[i] = cv::Range(first, end);
  }
  return ranges;
}

// An interior cell: the bilinear mix of the pixel at p00, its right neighbour and the two below
// them with the weights given, per channel (w00 p00 + w10 p10) + w01 p01 + w11 p11 in single
// precision, truncated to the byte.
inline void blendInterior(const uchar* p00, size_t step, float w00, float w10, float w01, float w11,
                          uchar* cell) {
  const uchar* p01 = p00 + step;
#if defined(__SSE2__)
  // The three channels side by side in one vector (the fourth lane is the neighbour's blue and
  // is dropped): the same products and sums per channel as the plain loop below. The 8-byte
  // loads stay inside the shot, since an interior pixel is at least 2 columns from the right.
  const __m128i zero = _mm_setzero_si128();
  const auto channels = [zero](const uchar* pixel) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pixel));
    const __m128i words = _mm_unpacklo_epi8(bytes, zero);
    return std::make_pair(_mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero)),
                          _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_srli_si128(words, 6), zero)));
  };
  const auto top = channels(p00);
  const auto bottom = channels(p01);
  __m128 sum =
      _mm_add_ps(_mm_mul_ps(_mm_set1_ps(w00), top.first), _mm_mul_ps(_mm_set1_ps(w10), top.second));
  sum = _mm_add_ps(sum, _mm_mul_ps(_mm_set1_ps(w01), bottom.first));
  sum = _mm_add_ps(sum, _mm_mul_ps(_mm_set1_ps(w11), bottom.second));
  const __m128i truncated = _mm_cvttps_epi32(sum);
  const __m128i packed = _mm_packus_epi16(_mm_packs_epi32(truncated, zero), zero);
  const uint32_t bytes = static_cast<uint32_t>(_mm_cvtsi128_si32(packed));
  std::memcpy(cell, &bytes, 3);
#else
  for (int c = 0; c < 3; ++c) {
    cell[c] = static_cast<uchar>(w00 * p00[c] + w10 * p00[3 + c] + w01 * p01[c] + w11 * p01[3 + c]);
  }
#endif
}

cv::Mat projectThroughRanges(const cv::Mat& shot, const cv::Mat& table,
                             const CameraGeometry& geometry,
                             const std::vector<cv::Range>& columns) {
  // Cells outside the ranges stay black without being written: their pages are never touched.
  cv::Mat projected = zeroedMat(table.rows, table.cols, CV_8UC3);
  const int lastInteriorX = static_cast<int>(geometry.size1) - 2;
  const int lastInteriorY = static_cast<int>(geometry.size2) - 2;
  const size_t step = shot.step[0];
  const float shotColumns = static_cast<float>(shot.cols);
  const float shotRows = static_cast<float>(shot.rows);

  for (int i = 0; i < table.rows; ++i) {
    const cv::Vec2f* records = table.ptr<cv::Vec2f>(i);
    uchar* out = projected.ptr<uchar>(i);
    const cv::Range range = columns[i];
    for (int j = range.start; j < range.end; ++j) {
      const float u = records[j][0];
      const float v = records[j][1];
      uchar* cell = out + j * 3;
      // An unseen cell stays black; so does a record of a damaged cache file that would read
      // outside the shot (NaN fails the test too).
      if (u == 0.0f || v == 0.0f || !(u > 0.0f && v > 0.0f && u < shotColumns && v < shotRows)) {
        cell[0] = cell[1] = cell[2] = 0;
        continue;
      }
      const int x0 = static_cast<int>(std::floor(u));
      const int y0 = static_cast<int>(std::floor(v));
      const float fx = u - x0;
      const float fy = v - y0;
      const uchar* p00 = shot.data + y0 * step + x0 * 3;
      if (x0 > 1 && x0 < lastInteriorX && y0 >= 2 && y0 < lastInteriorY) {
        const float w00 = (1 - fx) * (1 - fy);
        const float w10 = fx * (1 - fy);
        const float w01 = (1 - fx) * fy;
        const float w11 = fx * fy;
        blendInterior(p00, step, w00, w10, w01, w11, cell);
      } else {
        cell[0] = p00[0];
        cell[1] = p00[1];
        cell[2] = p00[2];
      }
    }
  }
  return projected;
}

}  // namespace

cv::Mat projectShot(const cv::Mat& shot, const cv::Mat& table, const CameraGeometry& geometry) {
  requireShot(shot, geometry);
  CV_Assert(table.type() == CV_32FC2);
  return projectThroughRanges(shot, table, geometry, seenColumns(table));
}

std::vector<cv::Range> projectedColumns(const cv::Mat& table, cv::Range gridColumns) {
  CV_Assert(table.type() == CV_32FC2);
  std::vector<cv::Range> columns = seenColumns(table);
  if (gridColumns != cv::Range::all()) {
    for (cv::Range& range : columns) {
      range =
          cv::Range(std::max(range.start, gridColumns.start), std::min(range.end, gridColumns.end));
      if (range.start >= range.end) range = cv::Range(0, 0);
    }
  }
  return columns;
}

cv::Mat projectShotColumns(const cv::Mat& shot, const cv::Mat& table,
                           const CameraGeometry& geometry, const std::vector<cv::Range>& columns) {
  requireShot(shot, geometry);
  CV_Assert(table.type() == CV_32FC2 && columns.size() == static_cast<std::size_t>(table.rows));
  return projectThroughRanges(shot, table, geometry, columns);
}

std::vector<cv::Mat> projectShots(const std::vector<cv::Mat>& shots, const cv::Mat& table,
                                  const CameraGeometry& geometry, cv::Range gridColumns) {
  for (const cv::Mat& shot : shots) requireShot(shot, geometry);
  const std::vector<cv::Range> columns = projectedColumns(table, gridColumns);
  std::vector<cv::Mat> projected(shots.size());
  WorkerThreads workers;
  for (size_t k = 0; k < shots.size(); ++k) {
    workers.start(
        [&, k] { projected[k] = projectThroughRanges(shots[k], table, geometry, columns); });
  }
  workers.join();
  return projected;
}

}  // namespace velmora
