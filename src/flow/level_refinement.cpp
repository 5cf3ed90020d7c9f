#include "flow/level_refinement.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "api/status.h"
#include "flow/bilinear_sample.h"
#include "flow/initial_search.h"

namespace velmora {
namespace {

// The two numeric-derivative offsets of the gradient step.
constexpr float kOffsetX[2] = {kGradientDelta, 0.0f};
constexpr float kOffsetY[2] = {0.0f, kGradientDelta};

// Everything the cost reads that is fixed for one level: the second image's gradients through
// raw pointers and the level's size.
struct LevelCostContext {
  const float* gradient1x;
  const float* gradient1y;
  std::size_t stride;
  float maxX, maxY;     // the bilinear clamp bounds, width - 2 and height - 2
  float width, height;  // the level's size, for the displacement length terms
};

// Everything the cost reads that is fixed for one pixel.
struct PixelTerms {
  float x, y;
  float gradient0x, gradient0y;
  float priorX, priorY;
};

// The cost of flow (fx, fy) at a pixel. The vertical displacement is divided by the width and
// the horizontal one by the height; that crossing is intended. |f| of a float is exact, whatever
// the precision it is taken in.
inline float costAt(const LevelCostContext& level, const PixelTerms& pixel, float fx, float fy) {
  const BilinearCell cell = locateBilinear(pixel.x + fx, pixel.y + fy, level.maxX, level.maxY);
  const float ex = pixel.gradient0x - sampleAt(level.gradient1x, level.stride, cell);
  const float ey = pixel.gradient0y - sampleAt(level.gradient1y, level.stride, cell);
  const float px = fx - pixel.priorX;
  const float py = fy - pixel.priorY;
  return std::sqrt(ex * ex + ey * ey) + kPriorWeight * std::sqrt(px * px + py * py) +
         kDisplacementWeight * std::fabs(fy) / level.width +
         kDisplacementWeight * std::fabs(fx) / level.height;
}

void requireSweepInputs(const SweepInputs& in, const cv::Mat& flow) {
  const cv::Size size = in.gradient0x.size();
  for (const cv::Mat* image :
       {&in.gradient0x, &in.gradient0y, &in.gradient1x, &in.gradient1y, &in.alpha0, &in.alpha1}) {
    if (image->type() != CV_32FC1 || image->size() != size) {
      throw Failure("Flow refinement: gradients and alphas must be 32-bit float of one size.");
    }
  }
  if (in.prior.type() != CV_32FC2 || in.prior.size() != size || flow.type() != CV_32FC2 ||
      flow.size() != size) {
    throw Failure("Flow refinement: the flow and its prior must be CV_32FC2 of the level's size.");
  }
  if (size.width < 2 || size.height < 2) {
    throw Failure("Flow refinement: a level must be at least 2 x 2 pixels.");
  }
}

LevelCostContext costContextOf(const SweepInputs& in, cv::Mat& gradient1xStorage,
                               cv::Mat& gradient1yStorage) {
  // Both second-image gradients are read with one index: give them one layout.
  gradient1xStorage = in.gradient1x.isContinuous() ? in.gradient1x : in.gradient1x.clone();
  gradient1yStorage = in.gradient1y.isContinuous() ? in.gradient1y : in.gradient1y.clone();
  const int width = in.gradient0x.cols;
  const int height = in.gradient0x.rows;
  return {gradient1xStorage.ptr<float>(),  gradient1yStorage.ptr<float>(),
          static_cast<std::size_t>(width), static_cast<float>(width - 2),
          static_cast<float>(height - 2),  static_cast<float>(width),
          static_cast<float>(height)};
}

// One sweep. Forward walks rows and columns upwards and takes candidates at -d; backward walks
// downwards and takes candidates at +d. The candidates of a pixel are fixed while it is visited
// (none of them is the pixel itself), so their costs are computed together first and then taken
// in visiting order: horizontal then vertical for each d, strictly lower cost wins.
template <bool kForward, bool kWide>
void sweep(const SweepInputs& in, cv::Mat& flow) {
  constexpr int kStep = kWide ? 2 : 1;
  constexpr int kLimit = kWide ? 10 : 2;
  constexpr int kMaxCandidates = 2 * ((kLimit - 1) / kStep);
  requireSweepInputs(in, flow);
  cv::Mat gradient1x, gradient1y;
  const LevelCostContext level = costContextOf(in, gradient1x, gradient1y);
  const int width = flow.cols;
  const int height = flow.rows;
  const std::ptrdiff_t flowStride = static_cast<std::ptrdiff_t>(flow.step1() / 2);

  for (int row = 0; row < height; ++row) {
    const int y = kForward ? row : height - 1 - row;
    const float* gradient0x = in.gradient0x.ptr<float>(y);
    const float* gradient0y = in.gradient0y.ptr<float>(y);
    const float* alpha0 = in.alpha0.ptr<float>(y);
    const float* alpha1 = in.alpha1.ptr<float>(y);
    const cv::Vec2f* prior = in.prior.ptr<cv::Vec2f>(y);
    cv::Vec2f* flowRow = flow.ptr<cv::Vec2f>(y);
    for (int column = 0; column < width; ++column) {
      const int x = kForward ? column : width - 1 - column;
      if (!(alpha0[x] > kSweepAlphaThreshold && alpha1[x] > kSweepAlphaThreshold)) continue;
      const PixelTerms pixel{static_cast<float>(x), static_cast<float>(y), gradient0x[x],
                             gradient0y[x],         prior[x][0],           prior[x][1]};

      const cv::Vec2f* candidates[kMaxCandidates];
      int count = 0;
      for (int d = kStep; d < kLimit; d += kStep) {
        if (kForward ? x > d : x < width - d) {
          candidates[count++] = flowRow + (kForward ? x - d : x + d);
        }
        if (kForward ? y > d : y < height - d) {
          candidates[count++] = flowRow + (kForward ? -d : d) * flowStride + x;
        }
      }
      float fx = flowRow[x][0];
      float fy = flowRow[x][1];
      float best = costAt(level, pixel, fx, fy);
      float costs[kMaxCandidates];
      for (int k = 0; k < count; ++k) {
        costs[k] = costAt(level, pixel, (*candidates[k])[0], (*candidates[k])[1]);
      }
      for (int k = 0; k < count; ++k) {
        if (costs[k] < best) {
          fx = (*candidates[k])[0];
          fy = (*candidates[k])[1];
          best = costs[k];
        }
      }

      const float ex = costAt(level, pixel, fx + kOffsetX[0], fy + kOffsetX[1]);
      const float ey = costAt(level, pixel, fx + kOffsetY[0], fy + kOffsetY[1]);
      flowRow[x][0] = fx - 0.5f * (ex - best) / kGradientDelta;
      flowRow[x][1] = fy - 0.5f * (ey - best) / kGradientDelta;
    }
  }
}

void medianInPlace(cv::Mat& flow) {
  cv::Mat filtered;
  cv::medianBlur(flow, filtered, 5);
  flow = filtered;
}

}  // namespace

void greyGradients(const cv::Mat& grey, cv::Mat& gradientX, cv::Mat& gradientY) {
  cv::Sobel(grey, gradientX, -1, 1, 0, 1, 1.0, 0.0, cv::BORDER_REPLICATE);
  cv::Sobel(grey, gradientY, -1, 0, 1, 1, 1.0, 0.0, cv::BORDER_REPLICATE);
  cv::GaussianBlur(gradientX, gradientX, cv::Size(3, 3), 0.5, 0.0, cv::BORDER_DEFAULT);
  cv::GaussianBlur(gradientY, gradientY, cv::Size(3, 3), 0.5, 0.0, cv::BORDER_DEFAULT);
}

cv::Mat smoothPrior(const cv::Mat& flow) {
  cv::Mat prior;
  cv::GaussianBlur(flow, prior, cv::Size(15, 15), 8.0, 0.0, cv::BORDER_DEFAULT);
  return prior;
}

void forwardSweep(const SweepInputs& inputs, cv::Mat& flow, bool wide) {
  wide ? sweep<true, true>(inputs, flow) : sweep<true, false>(inputs, flow);
}

void backwardSweep(const SweepInputs& inputs, cv::Mat& flow, bool wide) {
  wide ? sweep<false, true>(inputs, flow) : sweep<false, false>(inputs, flow);
}

void blendWithPrior(cv::Mat& flow, const cv::Mat& alpha0, const cv::Mat& alpha1) {
  if (flow.type() != CV_32FC2 || alpha0.type() != CV_32FC1 || alpha1.type() != CV_32FC1 ||
      alpha0.size() != flow.size() || alpha1.size() != flow.size()) {
    throw Failure("Flow prior blend: the flow and both alphas must be of one size.");
  }
  const cv::Mat smooth = smoothPrior(flow);
  for (int y = 0; y < flow.rows; ++y) {
    cv::Vec2f* flowRow = flow.ptr<cv::Vec2f>(y);
    const cv::Vec2f* smoothRow = smooth.ptr<cv::Vec2f>(y);
    const float* a0 = alpha0.ptr<float>(y);
    const float* a1 = alpha1.ptr<float>(y);
    for (int x = 0; x < flow.cols; ++x) {
      const float a = a0[x] * a1[x];
      flowRow[x][0] = a * flowRow[x][0] + (1.0f - a) * smoothRow[x][0];
      flowRow[x][1] = a * flowRow[x][1] + (1.0f - a) * smoothRow[x][1];
    }
  }
}

void refineLevel(const cv::Mat& grey0, const cv::Mat& grey1, const cv::Mat& alpha0,
                 const cv::Mat& alpha1, cv::Mat& flow, int directionHint, bool wide) {
  SweepInputs inputs;
  greyGradients(grey0, inputs.gradient0x, inputs.gradient0y);
  greyGradients(grey1, inputs.gradient1x, inputs.gradient1y);
  inputs.alpha0 = alpha0;
  inputs.alpha1 = alpha1;
  if (flow.empty()) {
    flow = cv::Mat::zeros(grey0.size(), CV_32FC2);
    if (directionHint != kHintNoSearch) {
      initialSearch(grey0, grey1, alpha0, alpha1, flow, directionHint);
    }
  }
  inputs.prior = smoothPrior(flow);
  forwardSweep(inputs, flow, wide);
  medianInPlace(flow);
  backwardSweep(inputs, flow, wide);
  medianInPlace(flow);
  blendWithPrior(flow, alpha0, alpha1);
}

}  // namespace velmora
