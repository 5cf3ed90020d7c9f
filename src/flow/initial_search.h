// The brute-force patch search that starts the flow estimate on the coarsest pyramid level.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// Direction hints: where the second image's content is expected to lie relative to the first.
enum FlowDirectionHint : int {
  kHintRightward = 0,  // dx 0 to 5, dy -1 to 1
  kHintDownward = 1,   // dx -1 to 1, dy 0 to 5
  kHintLeftward = 2,   // dx -5 to 0, dy -1 to 1
  kHintUpward = 3,     // dx -1 to 1, dy -5 to 0
  kHintNoSearch = 4,   // no initial search: the coarsest level starts from zero flow
};

// Half side of the square patch the search compares (21 x 21 pixels).
constexpr int kPatchRadius = 10;
// How much dearer a displacement makes a patch, per pixel of its length.
constexpr float kPatchDistancePenalty = 0.2f;
// A pixel takes part in the search when its first alpha is above this.
constexpr float kSearchAlphaThreshold = 0.9f;

// The overall brightness ratio of two grey images where both are valid:
// sum(A0 x A1 x grey0) / sum(A0 x A1 x grey1), 32-bit float sums in row order. Images with no
// jointly valid content give a non-finite value. All four images are CV_32F of one size.
float brightnessGain(const cv::Mat& grey0, const cv::Mat& alpha0, const cv::Mat& grey1,
                     const cv::Mat& alpha1);

// Dissimilarity of the 21 x 21 patch around p in the first image and around q in the second:
// (1 + 0.2 |q - p|) x D / S with D = sum |grey0(p + o) - grey1(clamped q + o)| and
// S = sum alpha0(p + o) x alpha1(clamped q + o), over the offsets o (row by row) for which p + o
// lies inside the first image; the second image is read with each coordinate clamped into its
// bounds. |q - p| is computed in double and rounded to float. S = 0 gives a non-finite cost. All
// four images are CV_32F of one size; p must lie inside it (q may lie anywhere).
float patchCost(const cv::Mat& grey0, const cv::Mat& alpha0, cv::Point p, const cv::Mat& grey1,
                const cv::Mat& alpha1, cv::Point q);

// Initialises `flow` (CV_32FC2 of the images' size, zero on entry) on the coarsest level. The
// second grey image is matched to the first by brightnessGain; then every pixel whose first alpha
// is above 0.9 keeps zero displacement unless a displacement of the hint's range (dy ascending,
// then dx ascending, second-image position inside the image) has a strictly lower patch cost; the
// lowest is stored as (dx, dy). Ties keep the earlier candidate, so zero wins a tie. A hint
// outside 0 to 3 leaves the flow zero. The input images are not modified.
void initialSearch(const cv::Mat& grey0, const cv::Mat& grey1, const cv::Mat& alpha0,
                   const cv::Mat& alpha1, cv::Mat& flow, int directionHint);

}  // namespace velmora
