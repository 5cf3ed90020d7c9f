// Refinement of the flow on one pyramid level: two propagation sweeps with one numeric gradient
// step per pixel, median filtering, and a blend towards a smooth prior where the images are
// invalid.
#pragma once

#include <opencv2/core.hpp>

#include "flow/flow_cost.h"

namespace velmora {
// A pixel is refined only when both its alphas are above this.
constexpr float kSweepAlphaThreshold = 0.9f;
// Step of the numeric derivative of the cost, in pixels.
constexpr float kGradientDelta = 0.001f;

// The images a sweep reads: smoothed gradients of both grey images, both alphas and the smooth
// prior P, all of one size (at least 2 x 2). The gradients and alphas are CV_32F, P is CV_32FC2.
struct SweepInputs {
  cv::Mat gradient0x, gradient0y;
  cv::Mat gradient1x, gradient1y;
  cv::Mat alpha0, alpha1;
  cv::Mat prior;
};

// The central differences of a CV_32F image along x and y, I(x + 1) - I(x - 1) and
// I(y + 1) - I(y - 1), with the edge pixels repeated outside it: the values of cv::Sobel with
// kernel size 1 and a replicated border, without its general filter machinery. Throws Failure for
// an empty image or another type; the outputs must not share the image's data.
void centralDifferences(const cv::Mat& grey, cv::Mat& differenceX, cv::Mat& differenceY);

// The smoothed horizontal and vertical gradients of a CV_32F grey image: the central differences
// (cv::Sobel with kernel size 1 and replicated border), each then blurred with a 3 x 3 Gaussian of
// sigma 0.5.
void greyGradients(const cv::Mat& grey, cv::Mat& gradientX, cv::Mat& gradientY);

// The smooth prior of a flow field: its 15 x 15 Gaussian blur of sigma 8.
cv::Mat smoothPrior(const cv::Mat& flow);

// The forward sweep over `flow` (CV_32FC2 of the inputs' size, updated in place): rows top to
// bottom, columns left to right, visiting pixels whose two alphas are both above 0.9. The cost of
// flow f at pixel p on a level of W x H, with S the bilinear sample, is
// |(G0x(p) - S(G1x, p + f), G0y(p) - S(G1y, p + f))| + 0.012 |f - P(p)| + 0.02 |fy| / W +
// 0.02 |fx| / H, all in 32-bit float (the length terms are crossed on purpose). A visited
// pixel takes, in turn for d = 1 (narrow) or d = 2, 4, 6, 8 (wide), the flow of (x - d, y) when
// x > d and then of (y - d, x) when y > d, whenever it costs strictly less; then it takes one
// gradient step f - 0.5 (E(f + delta) - E(f)) / 0.001 per component. The costs are evaluated
// with `unit` (by default the fastest the processor has; every unit gives the same bits). Throws
// Failure on sizes or types that do not fit.
void forwardSweep(const SweepInputs& inputs, cv::Mat& flow, bool wide,
                  CostUnit unit = fastestCostUnit());

// The backward sweep: rows bottom to top, columns right to left, candidates (x + d, y) when
// x < W - d and then (x, y + d) when y < H - d; otherwise as forwardSweep.
void backwardSweep(const SweepInputs& inputs, cv::Mat& flow, bool wide,
                   CostUnit unit = fastestCostUnit());

// Blends `flow` towards its 15 x 15 Gaussian blur Q (sigma 8) by the joint validity
// a = alpha0 x alpha1: flow = a flow + (1 - a) Q per component, so invalid pixels take the smooth
// field of their surroundings and fully valid ones keep their value.
void blendWithPrior(cv::Mat& flow, const cv::Mat& alpha0, const cv::Mat& alpha1);

// Refines `flow` on one level from the level's grey images and alphas (CV_32F, one size, at
// least 2 x 2). An empty `flow` marks the coarsest level: it starts from zero, and from the
// initial patch search unless the hint is 4. Then: prior, forward sweep, 5 x 5 median, backward
// sweep, 5 x 5 median, prior blend. Throws Failure on sizes or types that do not fit.
void refineLevel(const cv::Mat& grey0, const cv::Mat& grey1, const cv::Mat& alpha0,
                 const cv::Mat& alpha1, cv::Mat& flow, int directionHint, bool wide);

// One pyramid level of one flow input: its grey image and alpha (CV_32F) and the smoothed
// gradients of the grey image (greyGradients).
struct LevelImages {
  cv::Mat grey, alpha, gradientX, gradientY;
};

// The level images of a grey image and its alpha: the gradients are computed here.
LevelImages levelImagesOf(const cv::Mat& grey, const cv::Mat& alpha);

// Working memory for refining every level of one pyramid: the prior, the blend's smooth field
// and two flow fields, allocated once at the finest level's size and viewed at each level's size,
// so that the levels reuse the same memory instead of allocating their own.
class LevelWorkspace {
 public:
  explicit LevelWorkspace(cv::Size finest);

  // A continuous CV_32FC2 view of `size` (at most the finest size) over field buffer k: 0 the
  // prior, 1 the blend's smooth field, 2 and 3 the flow as it moves between filter passes and
  // levels.
  cv::Mat field(int k, cv::Size size) const;
  // The flow buffer (2 or 3) that `flow` does not lie in, viewed at `size`.
  cv::Mat otherFlow(const cv::Mat& flow, cv::Size size) const;

 private:
  cv::Size finest_;
  cv::Mat fields_[4];
};

// refineLevel on level images whose gradients are already computed, with its working images in
// `workspace`. On return `flow` is a view into the workspace's flow buffers (it may start as one
// or as a Mat of its own, or empty).
void refineLevel(const LevelImages& first, const LevelImages& second, cv::Mat& flow,
                 int directionHint, bool wide, const LevelWorkspace& workspace);

}  // namespace velmora
