// Dense optical flow between two overlapping BGRA images with validity in their alpha channel.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "flow/initial_search.h"
#include "flow/level_refinement.h"

namespace velmora {

// Factor that carries a flow field from one pyramid level to the next finer one: 1 / 0.88 as a
// 32-bit float.
constexpr float kLevelUpscale = 1.1363636255264282f;

// The flow job. Computes, for every pixel (x, y) of `first`, the displacement (dx, dy) in pixels
// to its match (x + dx, y + dy) in `second`, into `flow` (CV_32FC2 of the images' size; whatever
// it held is replaced).
//
// first, second: CV_8UC4 (blue, green, red, alpha; alpha 255 valid, 0 empty), of one size whose
//   half (trunc(width / 2) x trunc(height / 2)) is at least 2 x 2.
// directionHint: 0 to 3 start the coarsest level with a patch search of that hint's range
//   (FlowDirectionHint); 4 (or any other value) starts it from zero flow.
// wide: propagate from neighbours 2, 4, 6 and 8 pixels away instead of 1.
//
// The estimate runs at half resolution: grey images in [0, 1] (Gaussian 5 x 5, sigma 0.25) and
// alphas in [0, 1] go into pyramids of 0.88 steps; every level from the coarsest down is refined
// and its flow resized (cubic) and scaled by 1 / 0.88 to the next level; the level-0 flow is
// resized (linear) to full size, doubled and smoothed (Gaussian 3 x 3, sigma 1). Pixels where
// either alpha is 0 take the smooth field of their surroundings.
// Throws Failure when the images do not fit the above; OpenCV's exceptions pass through.
void computeOpticalFlow(const cv::Mat& first, const cv::Mat& second, cv::Mat& flow,
                        int directionHint, bool wide);

// What the flow job derives from one input image alone, so that the two flow jobs of a pair
// (first to second and second to first) derive it once: the input's full size and, per pyramid
// level (index 0 the finest), the half-size grey image and alpha with the grey image's gradients.
struct FlowInput {
  cv::Size fullSize;
  std::vector<LevelImages> levels;
};

// The flow input of one CV_8UC4 image (the requirements of computeOpticalFlow hold).
FlowInput prepareFlowInput(const cv::Mat& image);

// The flow job on prepared inputs of one size: the same field as computeOpticalFlow of the two
// images they were prepared from. Throws Failure when the inputs differ in size.
void computeOpticalFlow(const FlowInput& first, const FlowInput& second, cv::Mat& flow,
                        int directionHint, bool wide);

}  // namespace velmora
