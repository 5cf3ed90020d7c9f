// Synthesis of one seam band: both overlap cut-outs are moved part of the way along their flow
// toward each other, column by column, and blended.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// The interpolation grid of a band: `columns` x `rows` cells, cell (x, y) standing for position
// (x, y) with blend position t = x / columns (32-bit float): 0 at the first column, just under 1
// at the last.
struct InterpolationGrid {
  int columns;
  int rows;
  float blendPosition(int column) const {
    return static_cast<float>(column) / static_cast<float>(columns);
  }
};

// The grid of one band of a ring of `count` images in a frame of frameWidth x frameHeight:
// frameWidth / count columns (integer division) by frameHeight rows. Throws Failure when count
// is not positive or the grid would be empty.
InterpolationGrid bandGrid(int count, int frameWidth, int frameHeight);

// Which side of the band an image belongs to. The leading image (the band's first) is displaced
// by s = t of its flow and fades out; the trailing image (the band's second) is displaced by
// s = 1 - t and fades in.
enum class BandSide { kLeading, kTrailing };

struct WarpedImage {
  cv::Mat image;      // CV_8UC4, grid size
  cv::Mat magnitude;  // CV_32F, grid size: the length of the resampled flow at each cell
};

// Warps `image` (CV_8UC4) along `flow` (CV_32FC2, any size) over the grid. The flow is first
// resampled at the grid positions (cubic, zero outside it) into F'; then cell (x, y) takes the
// cubic sample of the image at (x + s F'x, y + s F'y), zero outside the image, and its alpha is
// scaled to trunc((1 - s) x alpha). Throws Failure on types that do not fit.
WarpedImage warpByFlow(const InterpolationGrid& grid, const cv::Mat& image, const cv::Mat& flow,
                       BandSide side);

// Blends the warped leading and trailing images (CV_8UC4 of one size, W' columns) into a new
// CV_8UC4 image. A pixel present (alpha not 0) in one image only keeps that image's colour with
// alpha 255 when the larger of the two alphas / 255 exceeds 0.1, else 0; absent in both gives
// zero; present in both gives round(min(255, b w + a (1 - w))) per colour channel with alpha 255,
// where w = (column - W' / 3) / (2W' / 3 - W' / 3) clamped to [0, 1] (0 for a band too narrow to
// ramp). Throws Failure on images that do not fit.
cv::Mat blendWarpedPair(const cv::Mat& leading, const cv::Mat& trailing);

// The interpolation job: the band of one neighbouring pair, frameWidth / count columns by
// frameHeight rows, from the pair's cut-outs (CV_8UC4) and flows (CV_32FC2): the first cut-out
// warped by the second-to-first flow as the leading image, the second warped by the
// first-to-second flow as the trailing one, then blended. At the first column the band shows the
// first cut-out undisplaced. Throws Failure on arguments that do not fit.
void interpolateSeamBand(const cv::Mat& firstCut, const cv::Mat& secondCut,
                         const cv::Mat& flowFirstToSecond, const cv::Mat& flowSecondToFirst,
                         int count, int frameWidth, int frameHeight, cv::Mat& band);

}  // namespace velmora
