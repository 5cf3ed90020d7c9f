#include "flow/level_refinement.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "common/buffer_pool.h"
#include "common/status.h"
#include "flow/initial_search.h"
#include "flow/median_blur.h"

namespace velmora {
namespace {

// The two numeric-derivative offsets of the gradient step.
constexpr float kOffsetX[2] = {kGradientDelta, 0.0f};
constexpr float kOffsetY[2] = {0.0f, kGradientDelta};

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
  // The cost units address a level's values with 32-bit offsets.
  if (static_cast<double>(size.width) * size.height > 2147483647.0) {
    throw Failure("Flow refinement: a level must hold fewer than 2^31 pixels.");
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

  Sweep(const SweepInputs& in, cv::Mat& flow, CostUnit unit) : in_(in), flow_(flow), unit_(unit) {
    if (!costUnitAvailable(unit)) throw Failure("Flow refinement: the cost unit is not available.");
    requireSweepInputs(in, flow);
    level_ = costContextOf(in, gradient1x_, gradient1y_);
    width_ = flow.cols;
    height_ = flow.rows;
    flowStride_ = static_cast<std::ptrdiff_t>(flow.step1() / 2);
    blocks_ = kWide && refinesBlocks(unit);
    int k = 0;
    for (int d = kStep; d < kLimit; d += kStep) {
      const std::ptrdiff_t sign = kForward ? -1 : 1;
      candidateOffsets_[k++] = 2 * sign * d;
      candidateOffsets_[k++] = 2 * sign * d * flowStride_;
    }
  }

  void run() {
    if (kWide) {
      runInBlocks();
      return;
    }
    for (int row = 0; row < height_; ++row) {
      const Row r = rowAt(kForward ? row : height_ - 1 - row);
      for (int column = 0; column < width_; ++column) {
        const int x = kForward ? column : width_ - 1 - column;
        if (visited(r, x)) {
          const Pixel pixel{&r, x};
          refinePixels(&pixel, 1);
        }
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

  // A pixel of a visit batch: its row and column.
  struct Pixel {
    const Row* row;
    int x;
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

  // Refines up to kMaxBatch pixels of which none reads another's flow, side by side: the costs of
  // every pixel's own flow and candidates in one batch of lanes, the cheapest taken per pixel in
  // visiting order (strictly lower cost wins), then the two gradient-step costs of every pixel in
  // a second batch, then the writes. Both differences of a step are taken before either
  // component is written.
  static constexpr int kMaxBatch = 4;
  static_assert(kMaxBatch * (kMaxCandidates + 1) <= CostBatch::kCapacity, "batch too small");
  void refinePixels(const Pixel* pixels, int count) {
    CostBatch batch;
    const cv::Vec2f* lanes[CostBatch::kCapacity];
    int first[kMaxBatch + 1];
    int used = 0;
    for (int i = 0; i < count; ++i) {
      const Row& r = *pixels[i].row;
      const int x = pixels[i].x;
      batch.setPixel(i, termsOf(r, x));
      first[i] = used;
      lanes[used] = r.flow + x;
      const int end = used + 1 + candidatesOf(r, x, lanes + used + 1);
      for (; used < end; ++used) batch.setLane(used, i, (*lanes[used])[0], (*lanes[used])[1]);
    }
    first[count] = used;
    evaluateCosts(unit_, level_, batch, used);

    float fx[kMaxBatch], fy[kMaxBatch], best[kMaxBatch];
    for (int i = 0; i < count; ++i) {
      int cheapest = first[i];
      for (int k = first[i] + 1; k < first[i + 1]; ++k) {
        if (batch.cost[k] < batch.cost[cheapest]) cheapest = k;
      }
      fx[i] = (*lanes[cheapest])[0];
      fy[i] = (*lanes[cheapest])[1];
      best[i] = batch.cost[cheapest];
    }
    for (int i = 0; i < count; ++i) {
      batch.setLane(2 * i, i, fx[i] + kOffsetX[0], fy[i] + kOffsetX[1]);
      batch.setLane(2 * i + 1, i, fx[i] + kOffsetY[0], fy[i] + kOffsetY[1]);
    }
    evaluateCosts(unit_, level_, batch, 2 * count);
    for (int i = 0; i < count; ++i) {
      cv::Vec2f& flow = pixels[i].row->flow[pixels[i].x];
      flow[0] = fx[i] - 0.5f * (batch.cost[2 * i] - best[i]) / kGradientDelta;
      flow[1] = fy[i] - 0.5f * (batch.cost[2 * i + 1] - best[i]) / kGradientDelta;
    }
  }

  // Wide propagation only reads flows at even distances along the row and the column, so the
  // pixels of a 2 x 2 block (two neighbouring columns of two neighbouring rows) never read each
  // other's flow, and every flow they read was final before the block: a block is refined
  // together, blocks in visiting order. The results are those of the pixel by pixel order.
  void runInBlocks() {
    int row = 0;
    if (blocks_) {
      for (; row + 4 <= height_; row += 4) runRowQuad(row);
    }
    for (; row < height_; row += 2) {
      Row rows[2];
      const int rowCount = std::min(2, height_ - row);
      for (int k = 0; k < rowCount; ++k) rows[k] = rowAt(visitedRow(row + k));
      for (int column = 0; column < width_; column += 2) {
        PixelBlock block;
        int count = 0;
        refineOrCollect(rows, rowCount, column, &block, count);
        refineTogether(&block, count);
      }
    }
  }

  // Rows row to row + 3 (in visiting order) as two pairs, the second two blocks behind the first:
  // each block of the second pair then reads only flows that are final (the first pair's rows up
  // to its own columns), and the two blocks of a step, which read none of each other's flows,
  // are refined together where both are inner blocks. The results are those of the pair by pair
  // order.
  void runRowQuad(int row) {
    Row leading[2], trailing[2];
    for (int k = 0; k < 2; ++k) {
      leading[k] = rowAt(visitedRow(row + k));
      trailing[k] = rowAt(visitedRow(row + 2 + k));
    }
    for (int column = 0; column < width_ + 2; column += 2) {
      PixelBlock together[2];
      int count = 0;
      if (column < width_) refineOrCollect(leading, 2, column, together, count);
      if (column >= 2) refineOrCollect(trailing, 2, column - 2, together, count);
      refineTogether(together, count);
    }
  }

  int visitedRow(int index) const { return kForward ? index : height_ - 1 - index; }

  // The block of `rowCount` rows at visiting column `column` (and the next one, where there is
  // one): an inner block of the block unit with visited pixels is added to `together` (count
  // blocks so far), any other is refined now, pixel batch by batch.
  void refineOrCollect(const Row* rows, int rowCount, int column, PixelBlock* together,
                       int& count) {
    if (rowCount == 2 && innerBlock(rows, column, together[count])) {
      if (together[count].visited != 0) ++count;
      return;
    }
    Pixel batch[kMaxBatch];
    int pixels = 0;
    for (int k = 0; k < rowCount; ++k) {
      for (int c = column; c < std::min(column + 2, width_); ++c) {
        const int x = kForward ? c : width_ - 1 - c;
        if (visited(rows[k], x)) batch[pixels++] = Pixel{&rows[k], x};
      }
    }
    if (pixels > 0) refinePixels(batch, pixels);
  }

  // Inner blocks collected by refineOrCollect, in one pass.
  void refineTogether(const PixelBlock* together, int count) {
    if (count > 0) {
      refineBlocks(unit_, level_, together, count, candidateOffsets_, kMaxCandidates,
                   kGradientDelta);
    }
  }

  // Whether every candidate of the pixel lies inside the level.
  bool hasEveryCandidate(const Row& r, int x) const {
    constexpr int kFarthest = kLimit - kStep;
    return kForward ? x > kFarthest && r.y > kFarthest
                    : x < width_ - kFarthest && r.y < height_ - kFarthest;
  }

  // Whether the two rows' visiting columns `column` and `column + 1` form an inner block (the
  // block unit refines it, every candidate of its four pixels is inside the level); if so,
  // `block` holds it.
  bool innerBlock(const Row* rows, int column, PixelBlock& block) const {
    if (!blocks_ || column + 1 >= width_) return false;
    const int columns[2] = {kForward ? column : width_ - 1 - column,
                            kForward ? column + 1 : width_ - 2 - column};
    for (int k = 0; k < 2; ++k) {
      for (int x : columns) {
        if (!hasEveryCandidate(rows[k], x)) return false;
      }
    }
    block.visited = 0;
    int i = 0;
    for (int k = 0; k < 2; ++k) {
      for (int x : columns) {
        const PixelTerms terms = termsOf(rows[k], x);
        block.x[i] = terms.x;
        block.y[i] = terms.y;
        block.gradient0x[i] = terms.gradient0x;
        block.gradient0y[i] = terms.gradient0y;
        block.priorX[i] = terms.priorX;
        block.priorY[i] = terms.priorY;
        block.flow[i] = &rows[k].flow[x][0];
        if (visited(rows[k], x)) block.visited |= 1u << i;
        ++i;
      }
    }
    return true;
  }

  const SweepInputs& in_;
  cv::Mat& flow_;
  CostUnit unit_;
  // Wide sweeps whose unit refines blocks: the candidates' offsets from a pixel's flow in floats,
  // in visiting order (for each d the row's then the column's).
  bool blocks_ = false;
  std::ptrdiff_t candidateOffsets_[kMaxCandidates] = {};
  cv::Mat gradient1x_, gradient1y_;
  LevelCostContext level_{};
  int width_ = 0, height_ = 0;
  std::ptrdiff_t flowStride_ = 0;
};

template <bool kForward, bool kWide>
void sweep(const SweepInputs& in, cv::Mat& flow, CostUnit unit) {
  Sweep<kForward, kWide>(in, flow, unit).run();
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
  medianBlur5x5(flow, filtered);
  flow = filtered;
}

}  // namespace

void centralDifferences(const cv::Mat& grey, cv::Mat& differenceX, cv::Mat& differenceY) {
  if (grey.type() != CV_32FC1 || grey.empty()) {
    throw Failure("Gradients: the grey image must be a non-empty 32-bit float image.");
  }
  differenceX.create(grey.size(), CV_32F);
  differenceY.create(grey.size(), CV_32F);
  const int width = grey.cols;
  for (int y = 0; y < grey.rows; ++y) {
    const float* above = grey.ptr<float>(std::max(y - 1, 0));
    const float* row = grey.ptr<float>(y);
    const float* below = grey.ptr<float>(std::min(y + 1, grey.rows - 1));
    float* dx = differenceX.ptr<float>(y);
    float* dy = differenceY.ptr<float>(y);
    for (int x = 0; x < width; ++x) dy[x] = below[x] - above[x];
    dx[0] = row[std::min(1, width - 1)] - row[0];
    for (int x = 1; x < width - 1; ++x) dx[x] = row[x + 1] - row[x - 1];
    if (width > 1) dx[width - 1] = row[width - 1] - row[width - 2];
  }
}

void greyGradients(const cv::Mat& grey, cv::Mat& gradientX, cv::Mat& gradientY) {
  centralDifferences(grey, gradientX, gradientY);
  cv::GaussianBlur(gradientX, gradientX, cv::Size(3, 3), 0.5, 0.0, cv::BORDER_DEFAULT);
  cv::GaussianBlur(gradientY, gradientY, cv::Size(3, 3), 0.5, 0.0, cv::BORDER_DEFAULT);
}

cv::Mat smoothPrior(const cv::Mat& flow) {
  cv::Mat prior;
  cv::GaussianBlur(flow, prior, cv::Size(15, 15), 8.0, 0.0, cv::BORDER_DEFAULT);
  return prior;
}

void forwardSweep(const SweepInputs& inputs, cv::Mat& flow, bool wide, CostUnit unit) {
  wide ? sweep<true, true>(inputs, flow, unit) : sweep<true, false>(inputs, flow, unit);
}

void backwardSweep(const SweepInputs& inputs, cv::Mat& flow, bool wide, CostUnit unit) {
  wide ? sweep<false, true>(inputs, flow, unit) : sweep<false, false>(inputs, flow, unit);
}

void blendWithPrior(cv::Mat& flow, const cv::Mat& alpha0, const cv::Mat& alpha1) {
  cv::Mat smooth;
  blendTowards(flow, alpha0, alpha1, smooth);
}

LevelImages levelImagesOf(const cv::Mat& grey, const cv::Mat& alpha) {
  LevelImages images{grey, alpha, pooledMat(), pooledMat()};
  greyGradients(grey, images.gradientX, images.gradientY);
  return images;
}

LevelWorkspace::LevelWorkspace(cv::Size finest) : finest_(finest) {
  for (cv::Mat& field : fields_) field = pooledMat(finest, CV_32FC2);
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
