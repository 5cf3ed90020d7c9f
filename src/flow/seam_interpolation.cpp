#include "flow/seam_interpolation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "common/buffer_pool.h"
#include "common/status.h"
#include "flow/cubic_remap.h"
#include "flow/pixel_rounding.h"

namespace velmora {
namespace {

// The alpha a pixel present in one warped image only gets, by the larger of the two alphas.
std::array<uchar, 256> singleSourceAlphas() {
  std::array<uchar, 256> alphas{};
  for (int m = 0; m < 256; ++m) alphas[m] = m * 0.003921569 > 0.1 ? 255 : 0;
  return alphas;
}

// The flow resampled at the grid positions (x, y) by cubic interpolation with a zero border.
// At an integer position the cubic weights are (0, 1, 0, 0) along both axes, so a finite flow
// resamples to itself (up to the sign of a zero, which the displaced positions and magnitudes
// do not show) and to zero beyond its edges: it is copied. Only a non-finite value would spread
// to its neighbours (0 x inf), so then the interpolation runs as such.
cv::Mat flowAtGridPositions(const cv::Mat& flow, const InterpolationGrid& grid) {
  if (!cv::checkRange(flow)) {
    cv::Mat positions(grid.rows, grid.columns, CV_32FC2);
    for (int y = 0; y < grid.rows; ++y) {
      cv::Vec2f* row = positions.ptr<cv::Vec2f>(y);
      for (int x = 0; x < grid.columns; ++x) {
        row[x] = cv::Vec2f(static_cast<float>(x), static_cast<float>(y));
      }
    }
    cv::Mat resampled;
    cv::remap(flow, resampled, positions, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_CONSTANT);
    return resampled;
  }
  cv::Mat resampled(grid.rows, grid.columns, CV_32FC2);
  const cv::Rect shared(0, 0, std::min(grid.columns, flow.cols), std::min(grid.rows, flow.rows));
  if (shared != cv::Rect(0, 0, grid.columns, grid.rows)) resampled.setTo(cv::Scalar::all(0));
  flow(shared).copyTo(resampled(shared));
  return resampled;
}

}  // namespace

InterpolationGrid bandGrid(int count, int frameWidth, int frameHeight) {
  if (count <= 0) throw Failure("Seam band: the ring must hold at least one image.");
  const InterpolationGrid grid{frameWidth / count, frameHeight};
  if (grid.columns <= 0 || grid.rows <= 0) {
    throw Failure("Seam band: a frame of " + std::to_string(frameWidth) + "x" +
                  std::to_string(frameHeight) + " leaves no band for " + std::to_string(count) +
                  " images.");
  }
  return grid;
}

namespace {

// Rows of the displaced-position map built and resampled at a time: the map of a whole band
// would be as large as its flow and be written once and read once.
constexpr int kWarpStripRows = 32;

// warpByFlow's image, and its magnitudes when `magnitude` is given (a band needs only the image).
// The image is warped in strips of rows, each through the map of its own rows: every warped
// pixel depends on its own map entry alone, so the strips give the bytes of one whole remap.
cv::Mat warpImage(const InterpolationGrid& grid, const cv::Mat& image, const cv::Mat& flow,
                  BandSide side, cv::Mat* magnitude) {
  if (image.type() != CV_8UC4 || flow.type() != CV_32FC2) {
    throw Failure("Seam warp: the image must be 8-bit BGRA and the flow CV_32FC2.");
  }
  // The flow at the grid positions: the flow itself where it is finite (see flowAtGridPositions),
  // else its cubic resampling, made whole.
  const bool finite = cv::checkRange(flow);
  const cv::Mat resampled = finite ? flow : flowAtGridPositions(flow, grid);
  const int flowColumns = std::min(grid.columns, resampled.cols);
  const int flowRows = std::min(grid.rows, resampled.rows);
  // The displacement s of every column, and the share (1 - s) of its alpha that is kept.
  std::vector<float> keep(grid.columns);
  std::vector<float> displacement(grid.columns);
  for (int x = 0; x < grid.columns; ++x) {
    const float t = grid.blendPosition(x);
    displacement[x] = side == BandSide::kLeading ? t : 1.0f - t;
    keep[x] = 1.0f - displacement[x];
  }
  if (magnitude != nullptr) magnitude->create(grid.rows, grid.columns, CV_32F);
  cv::Mat warped = pooledMat(grid.rows, grid.columns, CV_8UC4);
  cv::Mat map(std::min(kWarpStripRows, grid.rows), grid.columns, CV_32FC2);
  for (int top = 0; top < grid.rows; top += kWarpStripRows) {
    const int bottom = std::min(grid.rows, top + kWarpStripRows);
    cv::Mat stripMap = map.rowRange(0, bottom - top);
    for (int y = top; y < bottom; ++y) {
      cv::Vec2f* entry = stripMap.ptr<cv::Vec2f>(y - top);
      const cv::Vec2f* flowRow = y < flowRows ? resampled.ptr<cv::Vec2f>(y) : nullptr;
      const int columns = flowRow != nullptr ? flowColumns : 0;
      for (int x = 0; x < columns; ++x) entry[x] = flowRow[x];
      for (int x = columns; x < grid.columns; ++x) entry[x] = cv::Vec2f(0.0f, 0.0f);
      if (magnitude != nullptr) {
        float* length = magnitude->ptr<float>(y);
        for (int x = 0; x < grid.columns; ++x) {
          length[x] = std::sqrt(entry[x][0] * entry[x][0] + entry[x][1] * entry[x][1]);
        }
      }
      const float fy = static_cast<float>(y);
      for (int x = 0; x < grid.columns; ++x) {
        const float s = displacement[x];
        entry[x] = cv::Vec2f(static_cast<float>(x) + s * entry[x][0], fy + s * entry[x][1]);
      }
    }
    cv::Mat stripWarped = warped.rowRange(top, bottom);
    remapCubicBgra(image, stripMap, stripWarped);
    for (int y = 0; y < bottom - top; ++y) {
      uchar* pixel = stripWarped.ptr<uchar>(y);
      for (int x = 0; x < grid.columns; ++x) {
        pixel[4 * x + 3] = static_cast<uchar>(keep[x] * static_cast<float>(pixel[4 * x + 3]));
      }
    }
  }
  return warped;
}

}  // namespace

WarpedImage warpByFlow(const InterpolationGrid& grid, const cv::Mat& image, const cv::Mat& flow,
                       BandSide side) {
  WarpedImage warped;
  warped.image = warpImage(grid, image, flow, side, &warped.magnitude);
  return warped;
}

cv::Mat blendWarpedPair(const cv::Mat& leading, const cv::Mat& trailing) {
  if (leading.type() != CV_8UC4 || trailing.type() != CV_8UC4 ||
      leading.size() != trailing.size()) {
    throw Failure("Seam blend: both warped images must be 8-bit BGRA of one size.");
  }
  static const std::array<uchar, 256> kSingleSourceAlpha = singleSourceAlphas();
  const int width = leading.cols;
  const int start = width / 3;
  const int span = 2 * width / 3 - width / 3;
  std::vector<float> weights(width);
  for (int x = 0; x < width; ++x) {
    float w = span > 0 ? static_cast<float>(x - start) / static_cast<float>(span) : 0.0f;
    weights[x] = std::min(std::max(w, 0.0f), 1.0f);
  }

  cv::Mat blended = pooledMat(leading.size(), CV_8UC4);
  blended.setTo(cv::Scalar::all(0));
  for (int y = 0; y < leading.rows; ++y) {
    const uchar* a = leading.ptr<uchar>(y);
    const uchar* b = trailing.ptr<uchar>(y);
    uchar* out = blended.ptr<uchar>(y);
    for (int x = 0; x < width; ++x, a += 4, b += 4, out += 4) {
      const uchar alphaA = a[3];
      const uchar alphaB = b[3];
      if (alphaA == 0 && alphaB == 0) continue;
      if (alphaA == 0 || alphaB == 0) {
        const uchar* source = alphaA == 0 ? b : a;
        out[0] = source[0];
        out[1] = source[1];
        out[2] = source[2];
        out[3] = kSingleSourceAlpha[std::max(alphaA, alphaB)];
        continue;
      }
      const float w = weights[x];
      const float v = 1.0f - w;
      for (int c = 0; c < 3; ++c) {
        out[c] = clampRoundToByte(
            std::min(255.0f, static_cast<float>(b[c]) * w + static_cast<float>(a[c]) * v));
      }
      out[3] = 255;
    }
  }
  return blended;
}

void interpolateSeamBand(const cv::Mat& firstCut, const cv::Mat& secondCut,
                         const cv::Mat& flowFirstToSecond, const cv::Mat& flowSecondToFirst,
                         int count, int frameWidth, int frameHeight, cv::Mat& band) {
  const InterpolationGrid grid = bandGrid(count, frameWidth, frameHeight);
  const cv::Mat leading = warpImage(grid, firstCut, flowSecondToFirst, BandSide::kLeading, nullptr);
  const cv::Mat trailing =
      warpImage(grid, secondCut, flowFirstToSecond, BandSide::kTrailing, nullptr);
  band = blendWarpedPair(leading, trailing);
}

}  // namespace velmora
