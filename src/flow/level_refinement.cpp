#include "flow/level_refinement.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common/status.h"
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

#if defined(__SSE2__)
// Per-lane inputs of four cost evaluations: the pixel's terms and the flow value to cost.
struct CostLanes {
  __m128 x, y, gradient0x, gradient0y, priorX, priorY, fx, fy;
};

// s00 + (s01 - s00) u + (s10 - s00) v + (s00 + s11 - s01 - s10) u v, as sampleAt.
inline __m128 sampleLanes(__m128 s00, __m128 s01, __m128 s10, __m128 s11, __m128 u, __m128 v) {
  __m128 value = _mm_add_ps(s00, _mm_mul_ps(_mm_sub_ps(s01, s00), u));
  value = _mm_add_ps(value, _mm_mul_ps(_mm_sub_ps(s10, s00), v));
  const __m128 cross = _mm_sub_ps(_mm_sub_ps(_mm_add_ps(s00, s11), s01), s10);
  return _mm_add_ps(value, _mm_mul_ps(_mm_mul_ps(cross, u), v));
}

// The bilinear samples of one image at four located cells (`at`: the cells' top-left offsets):
// each cell's two top and two bottom values are read as pairs and regrouped into s00, s01, s10
// and s11 across the lanes.
inline __m128 sampleImage(const float* image, std::size_t stride, const std::size_t* at, __m128 u,
                          __m128 v) {
  const auto pair = [](const float* p) {
    // movq through the unaligned 64-bit load: two floats need not sit on an 8-byte boundary.
    return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
  };
  const auto twoPairs = [&](const float* p, const float* q) {
    return _mm_movelh_ps(pair(p), pair(q));
  };
  const __m128 top01 = twoPairs(image + at[0], image + at[1]);
  const __m128 top23 = twoPairs(image + at[2], image + at[3]);
  const __m128 bottom01 = twoPairs(image + at[0] + stride, image + at[1] + stride);
  const __m128 bottom23 = twoPairs(image + at[2] + stride, image + at[3] + stride);
  return sampleLanes(_mm_shuffle_ps(top01, top23, _MM_SHUFFLE(2, 0, 2, 0)),
                     _mm_shuffle_ps(top01, top23, _MM_SHUFFLE(3, 1, 3, 1)),
                     _mm_shuffle_ps(bottom01, bottom23, _MM_SHUFFLE(2, 0, 2, 0)),
                     _mm_shuffle_ps(bottom01, bottom23, _MM_SHUFFLE(3, 1, 3, 1)), u, v);
}

// Four costs at once, lane for lane the same IEEE operations in the same order as costAt, so
// every lane equals costAt bit for bit (max/min keep the clamp's NaN and signed-zero behaviour:
// a NaN or -0 coordinate reads as +0).
inline __m128 costLanes(const LevelCostContext& level, const CostLanes& in) {
  const __m128 zero = _mm_setzero_ps();
  const __m128 px = _mm_min_ps(_mm_max_ps(_mm_add_ps(in.x, in.fx), zero), _mm_set1_ps(level.maxX));
  const __m128 py = _mm_min_ps(_mm_max_ps(_mm_add_ps(in.y, in.fy), zero), _mm_set1_ps(level.maxY));
  const __m128i column = _mm_cvttps_epi32(px);
  const __m128i row = _mm_cvttps_epi32(py);
  const __m128 u = _mm_sub_ps(px, _mm_cvtepi32_ps(column));
  const __m128 v = _mm_sub_ps(py, _mm_cvtepi32_ps(row));
  alignas(16) int columns[4];
  alignas(16) int rows[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(columns), column);
  _mm_store_si128(reinterpret_cast<__m128i*>(rows), row);
  const std::size_t stride = level.stride;
  std::size_t at[4];
  for (int k = 0; k < 4; ++k) at[k] = static_cast<std::size_t>(rows[k]) * stride + columns[k];
  const __m128 sx = sampleImage(level.gradient1x, stride, at, u, v);
  const __m128 sy = sampleImage(level.gradient1y, stride, at, u, v);
  const __m128 ex = _mm_sub_ps(in.gradient0x, sx);
  const __m128 ey = _mm_sub_ps(in.gradient0y, sy);
  const __m128 dx = _mm_sub_ps(in.fx, in.priorX);
  const __m128 dy = _mm_sub_ps(in.fy, in.priorY);
  const __m128 absMask = _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff));
  const __m128 weight = _mm_set1_ps(kDisplacementWeight);
  __m128 cost = _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(ex, ex), _mm_mul_ps(ey, ey)));
  cost =
      _mm_add_ps(cost, _mm_mul_ps(_mm_set1_ps(kPriorWeight),
                                  _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(dx, dx), _mm_mul_ps(dy, dy)))));
  cost = _mm_add_ps(
      cost, _mm_div_ps(_mm_mul_ps(weight, _mm_and_ps(in.fy, absMask)), _mm_set1_ps(level.width)));
  return _mm_add_ps(
      cost, _mm_div_ps(_mm_mul_ps(weight, _mm_and_ps(in.fx, absMask)), _mm_set1_ps(level.height)));
}

// The fixed terms of one pixel in every lane.
inline CostLanes pixelLanes(const PixelTerms& pixel) {
  return {_mm_set1_ps(pixel.x),
          _mm_set1_ps(pixel.y),
          _mm_set1_ps(pixel.gradient0x),
          _mm_set1_ps(pixel.gradient0y),
          _mm_set1_ps(pixel.priorX),
          _mm_set1_ps(pixel.priorY),
          _mm_setzero_ps(),
          _mm_setzero_ps()};
}

// The fixed terms of two pixels, a in lanes 0 and 1, b in lanes 2 and 3.
inline CostLanes pixelPairLanes(const PixelTerms& a, const PixelTerms& b) {
  return {_mm_setr_ps(a.x, a.x, b.x, b.x),
          _mm_setr_ps(a.y, a.y, b.y, b.y),
          _mm_setr_ps(a.gradient0x, a.gradient0x, b.gradient0x, b.gradient0x),
          _mm_setr_ps(a.gradient0y, a.gradient0y, b.gradient0y, b.gradient0y),
          _mm_setr_ps(a.priorX, a.priorX, b.priorX, b.priorX),
          _mm_setr_ps(a.priorY, a.priorY, b.priorY, b.priorY),
          _mm_setzero_ps(),
          _mm_setzero_ps()};
}
#endif

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
class Sweep {
 public:
  static constexpr int kStep = kWide ? 2 : 1;
  static constexpr int kLimit = kWide ? 10 : 2;
  static constexpr int kMaxCandidates = 2 * ((kLimit - 1) / kStep);

  Sweep(const SweepInputs& in, cv::Mat& flow) : in_(in), flow_(flow) {
    requireSweepInputs(in, flow);
    level_ = costContextOf(in, gradient1x_, gradient1y_);
    width_ = flow.cols;
    height_ = flow.rows;
    flowStride_ = static_cast<std::ptrdiff_t>(flow.step1() / 2);
  }

  void run() {
#if defined(__SSE2__)
    if (kWide) {
      runInBlocks();
      return;
    }
#endif
    for (int row = 0; row < height_; ++row) {
      const Row r = rowAt(kForward ? row : height_ - 1 - row);
      for (int column = 0; column < width_; ++column) {
        const int x = kForward ? column : width_ - 1 - column;
        if (visited(r, x)) refineOne(r, x);
      }
    }
  }

 private:
  struct Row {
    int y;
    const float* gradient0x;
    const float* gradient0y;
    const float* alpha0;
    const float* alpha1;
    const cv::Vec2f* prior;
    cv::Vec2f* flow;
  };

  Row rowAt(int y) const {
    return {y,
            in_.gradient0x.ptr<float>(y),
            in_.gradient0y.ptr<float>(y),
            in_.alpha0.ptr<float>(y),
            in_.alpha1.ptr<float>(y),
            in_.prior.ptr<cv::Vec2f>(y),
            flow_.ptr<cv::Vec2f>(y)};
  }

  static bool visited(const Row& r, int x) {
    return r.alpha0[x] > kSweepAlphaThreshold && r.alpha1[x] > kSweepAlphaThreshold;
  }

  PixelTerms termsOf(const Row& r, int x) const {
    return {static_cast<float>(x), static_cast<float>(r.y), r.gradient0x[x],
            r.gradient0y[x],       r.prior[x][0],           r.prior[x][1]};
  }

  int candidatesOf(const Row& r, int x, const cv::Vec2f** candidates) const {
    int count = 0;
    for (int d = kStep; d < kLimit; d += kStep) {
      if (kForward ? x > d : x < width_ - d) {
        candidates[count++] = r.flow + (kForward ? x - d : x + d);
      }
      if (kForward ? r.y > d : r.y < height_ - d) {
        candidates[count++] = r.flow + (kForward ? -d : d) * flowStride_ + x;
      }
    }
    return count;
  }

  // The gradient step from f with cost `best`, given the costs ex and ey of f + (0.001, 0) and
  // f + (0, 0.001); both differences are taken before either component is written.
  static void step(cv::Vec2f& flow, float fx, float fy, float best, float ex, float ey) {
    flow[0] = fx - 0.5f * (ex - best) / kGradientDelta;
    flow[1] = fy - 0.5f * (ey - best) / kGradientDelta;
  }

#if defined(__SSE2__)
  // A pixel of a visit batch: its row and column.
  struct Pixel {
    const Row* row;
    int x;
  };

  // Refines up to kMaxBatch pixels of which none reads another's flow, side by side: first the
  // costs of every pixel's own flow and candidates (four lanes of one pixel at a time; lane 0 its
  // own flow, spare lanes repeat it and are not read), then the gradient steps of two pixels per
  // group of lanes, then the writes.
  static constexpr int kMaxBatch = 4;
  static constexpr int kLanes = (kMaxCandidates + 1 + 3) / 4 * 4;
  void refineLanes(const Pixel* pixels, int count) {
    PixelTerms terms[kMaxBatch + 1];
    float fx[kMaxBatch + 1], fy[kMaxBatch + 1], best[kMaxBatch + 1];
    for (int i = 0; i < count; ++i) {
      const Row& r = *pixels[i].row;
      const int x = pixels[i].x;
      const cv::Vec2f* lanes[kLanes];
      const int candidates = candidatesOf(r, x, lanes + 1);
      lanes[0] = r.flow + x;
      for (int k = candidates + 1; k < kLanes; ++k) lanes[k] = lanes[0];
      terms[i] = termsOf(r, x);
      CostLanes in = pixelLanes(terms[i]);
      alignas(16) float costs[kLanes];
      for (int k = 0; k <= candidates; k += 4) {
        in.fx =
            _mm_setr_ps((*lanes[k])[0], (*lanes[k + 1])[0], (*lanes[k + 2])[0], (*lanes[k + 3])[0]);
        in.fy =
            _mm_setr_ps((*lanes[k])[1], (*lanes[k + 1])[1], (*lanes[k + 2])[1], (*lanes[k + 3])[1]);
        _mm_store_ps(costs + k, costLanes(level_, in));
      }
      int cheapest = 0;
      for (int k = 1; k <= candidates; ++k) {
        if (costs[k] < costs[cheapest]) cheapest = k;
      }
      fx[i] = (*lanes[cheapest])[0];
      fy[i] = (*lanes[cheapest])[1];
      best[i] = costs[cheapest];
    }
    // An odd count pairs its last pixel with a copy of itself.
    if (count % 2 != 0) {
      terms[count] = terms[count - 1];
      fx[count] = fx[count - 1];
      fy[count] = fy[count - 1];
    }
    for (int i = 0; i < count; i += 2) {
      CostLanes in = pixelPairLanes(terms[i], terms[i + 1]);
      in.fx = _mm_setr_ps(fx[i] + kOffsetX[0], fx[i] + kOffsetY[0], fx[i + 1] + kOffsetX[0],
                          fx[i + 1] + kOffsetY[0]);
      in.fy = _mm_setr_ps(fy[i] + kOffsetX[1], fy[i] + kOffsetY[1], fy[i + 1] + kOffsetX[1],
                          fy[i + 1] + kOffsetY[1]);
      alignas(16) float steps[4];
      _mm_store_ps(steps, costLanes(level_, in));
      step(pixels[i].row->flow[pixels[i].x], fx[i], fy[i], best[i], steps[0], steps[1]);
      if (i + 1 < count) {
        step(pixels[i + 1].row->flow[pixels[i + 1].x], fx[i + 1], fy[i + 1], best[i + 1], steps[2],
             steps[3]);
      }
    }
  }

  void refineOne(const Row& r, int x) {
    const Pixel pixel{&r, x};
    refineLanes(&pixel, 1);
  }

  // Wide propagation only reads flows at even distances along the row and the column, so the
  // pixels of a 2 x 2 block (two neighbouring columns of two neighbouring rows) never read each
  // other's flow, and every flow they read was final before the block: a block is refined
  // together, blocks in visiting order. The results are those of the pixel by pixel order.
  void runInBlocks() {
    for (int row = 0; row < height_; row += 2) {
      Row rows[2];
      const int rowCount = std::min(2, height_ - row);
      for (int k = 0; k < rowCount; ++k) {
        rows[k] = rowAt(kForward ? row + k : height_ - 1 - row - k);
      }
      for (int column = 0; column < width_; column += 2) {
        Pixel batch[kMaxBatch];
        int count = 0;
        for (int k = 0; k < rowCount; ++k) {
          for (int c = column; c < std::min(column + 2, width_); ++c) {
            const int x = kForward ? c : width_ - 1 - c;
            if (visited(rows[k], x)) batch[count++] = Pixel{&rows[k], x};
          }
        }
        if (count > 0) refineLanes(batch, count);
      }
    }
  }
#else
  void refineOne(const Row& r, int x) {
    const PixelTerms pixel = termsOf(r, x);
    const cv::Vec2f* candidates[kMaxCandidates];
    const int count = candidatesOf(r, x, candidates);
    float fx = r.flow[x][0];
    float fy = r.flow[x][1];
    float best = costAt(level_, pixel, fx, fy);
    float costs[kMaxCandidates];
    for (int k = 0; k < count; ++k) {
      costs[k] = costAt(level_, pixel, (*candidates[k])[0], (*candidates[k])[1]);
    }
    for (int k = 0; k < count; ++k) {
      if (costs[k] < best) {
        fx = (*candidates[k])[0];
        fy = (*candidates[k])[1];
        best = costs[k];
      }
    }
    const float ex = costAt(level_, pixel, fx + kOffsetX[0], fy + kOffsetX[1]);
    const float ey = costAt(level_, pixel, fx + kOffsetY[0], fy + kOffsetY[1]);
    step(r.flow[x], fx, fy, best, ex, ey);
  }
#endif

  const SweepInputs& in_;
  cv::Mat& flow_;
  cv::Mat gradient1x_, gradient1y_;
  LevelCostContext level_{};
  int width_ = 0, height_ = 0;
  std::ptrdiff_t flowStride_ = 0;
};

template <bool kForward, bool kWide>
void sweep(const SweepInputs& in, cv::Mat& flow) {
  Sweep<kForward, kWide>(in, flow).run();
}

// The 15 x 15 blend of `flow` towards its smooth field, the field computed into `smooth`.
void blendTowards(cv::Mat& flow, const cv::Mat& alpha0, const cv::Mat& alpha1, cv::Mat& smooth) {
  if (flow.type() != CV_32FC2 || alpha0.type() != CV_32FC1 || alpha1.type() != CV_32FC1 ||
      alpha0.size() != flow.size() || alpha1.size() != flow.size()) {
    throw Failure("Flow prior blend: the flow and both alphas must be of one size.");
  }
  cv::GaussianBlur(flow, smooth, cv::Size(15, 15), 8.0, 0.0, cv::BORDER_DEFAULT);
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

// The 5 x 5 median of `flow` into the other flow buffer, which then holds the flow.
void medianIntoOther(cv::Mat& flow, const LevelWorkspace& workspace) {
  cv::Mat filtered = workspace.otherFlow(flow, flow.size());
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
  cv::Mat smooth;
  blendTowards(flow, alpha0, alpha1, smooth);
}

LevelImages levelImagesOf(const cv::Mat& grey, const cv::Mat& alpha) {
  LevelImages images{grey, alpha, cv::Mat(), cv::Mat()};
  greyGradients(grey, images.gradientX, images.gradientY);
  return images;
}

LevelWorkspace::LevelWorkspace(cv::Size finest) : finest_(finest) {
  for (cv::Mat& field : fields_) field.create(finest, CV_32FC2);
}

cv::Mat LevelWorkspace::field(int k, cv::Size size) const {
  CV_Assert(k >= 0 && k < 4 && size.width <= finest_.width && size.height <= finest_.height);
  return cv::Mat(size, CV_32FC2, fields_[k].data);
}

cv::Mat LevelWorkspace::otherFlow(const cv::Mat& flow, cv::Size size) const {
  return field(flow.data == fields_[2].data ? 3 : 2, size);
}

void refineLevel(const cv::Mat& grey0, const cv::Mat& grey1, const cv::Mat& alpha0,
                 const cv::Mat& alpha1, cv::Mat& flow, int directionHint, bool wide) {
  const LevelWorkspace workspace(grey0.size());
  refineLevel(levelImagesOf(grey0, alpha0), levelImagesOf(grey1, alpha1), flow, directionHint, wide,
              workspace);
  flow = flow.clone();
}

void refineLevel(const LevelImages& first, const LevelImages& second, cv::Mat& flow,
                 int directionHint, bool wide, const LevelWorkspace& workspace) {
  const cv::Size size = first.grey.size();
  const SweepInputs inputs{first.gradientX,         first.gradientY, second.gradientX,
                           second.gradientY,        first.alpha,     second.alpha,
                           workspace.field(0, size)};
  if (flow.empty()) {
    flow = workspace.field(2, size);
    flow.setTo(cv::Scalar::all(0));
    if (directionHint != kHintNoSearch) {
      initialSearch(first.grey, second.grey, first.alpha, second.alpha, flow, directionHint);
    }
  }
  cv::Mat prior = inputs.prior;
  cv::GaussianBlur(flow, prior, cv::Size(15, 15), 8.0, 0.0, cv::BORDER_DEFAULT);
  forwardSweep(inputs, flow, wide);
  medianIntoOther(flow, workspace);
  backwardSweep(inputs, flow, wide);
  medianIntoOther(flow, workspace);
  cv::Mat smooth = workspace.field(1, size);
  blendTowards(flow, first.alpha, second.alpha, smooth);
}

}  // namespace velmora
