// The cost the propagation sweeps minimise, for one flow value or for many side by side. The
// batched evaluation runs on the widest vector unit the processor has (AVX2, else SSE2, else
// plain code); every lane gives the bits of the one-value evaluation, whichever unit ran it.
#pragma once

#include <cmath>
#include <cstddef>

#include "flow/bilinear_sample.h"

namespace velmora {

// Weight of the distance from the smooth prior in the flow cost.
constexpr float kPriorWeight = 0.012f;
// Weight of the displacement length terms (|fy| / width and |fx| / height) in the flow cost.
constexpr float kDisplacementWeight = 0.02f;

// Everything the cost reads that is fixed for one level: the second image's gradients through
// raw pointers (one continuous layout for both, of fewer than 2^31 values) and the level's size.
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

// The cost of flow (fx, fy) at a pixel:
// |(G0x(p) - S(G1x, p + f), G0y(p) - S(G1y, p + f))| + 0.012 |f - P(p)| + 0.02 |fy| / W +
// 0.02 |fx| / H, in 32-bit float. The vertical displacement is divided by the width and the
// horizontal one by the height; that crossing is intended. |f| of a float is exact, whatever the
// precision it is taken in.
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

// Up to kCapacity cost evaluations of flow values at up to kPixels pixels: lane k costs flow
// (fx[k], fy[k]) at pixel pixel[k], whose terms are in entry pixel[k] of the per-pixel arrays.
// Pixels are filled with setPixel() and lanes with setLane(); evaluateCosts writes cost[k] for
// every lane below the count it is given.
class CostBatch {
 public:
  static constexpr int kPixels = 8;
  static constexpr int kCapacity = 48;

  void setPixel(int index, const PixelTerms& terms) {
    x[index] = terms.x;
    y[index] = terms.y;
    gradient0x[index] = terms.gradient0x;
    gradient0y[index] = terms.gradient0y;
    priorX[index] = terms.priorX;
    priorY[index] = terms.priorY;
  }

  void setLane(int lane, int pixelIndex, float flowX, float flowY) {
    pixel[lane] = pixelIndex;
    fx[lane] = flowX;
    fy[lane] = flowY;
  }

  // Per pixel.
  alignas(32) float x[kPixels] = {};
  alignas(32) float y[kPixels] = {};
  alignas(32) float gradient0x[kPixels] = {};
  alignas(32) float gradient0y[kPixels] = {};
  alignas(32) float priorX[kPixels] = {};
  alignas(32) float priorY[kPixels] = {};
  // Per lane.
  alignas(32) int pixel[kCapacity];
  alignas(32) float fx[kCapacity];
  alignas(32) float fy[kCapacity];
  alignas(32) float cost[kCapacity];
};

// The ways a batch can be evaluated: one lane at a time, four lanes (SSE2), eight lanes (AVX2).
enum class CostUnit { kPlain, kSse2, kAvx2 };

// Whether this build and this processor can evaluate with `unit`.
bool costUnitAvailable(CostUnit unit);

// The widest available unit, decided once per process.
CostUnit fastestCostUnit();

// Writes batch.cost[k] = costAt(level, terms of pixel[k], fx[k], fy[k]) for k in [0, count),
// count at most kCapacity and every pixel[k] in [0, kPixels), with `unit` (which must be
// available). Lanes from count up to the unit's width are filled with copies of lane 0 and
// costed too. Every lane's position is clamped into
// the level before it is read, so any flow value reads inside the gradients.
void evaluateCosts(CostUnit unit, const LevelCostContext& level, CostBatch& batch, int count);

// Four pixels that read none of each other's flows, refined together: the terms of each, its flow
// (x, y) and whether it is visited (bit i for pixel i).
struct PixelBlock {
  static constexpr int kMaxCandidates = 8;

  float x[4], y[4];
  float gradient0x[4], gradient0y[4];
  float priorX[4], priorY[4];
  float* flow[4];
  unsigned visited;
};

// Whether `unit` refines whole blocks (refineBlocks): the AVX2 unit, where it is available.
bool refinesBlocks(CostUnit unit);

// Refines every visited pixel of `count` blocks (1 or 2, none reading another's flows) as a sweep
// refines a pixel, all at once and each as if alone: of its own flow and the flows
// `candidateOffsets[0 .. candidates - 1]` floats from it (in visiting order, all inside the level)
// the one of strictly lowest cost, the first of equals; then one gradient step per component,
// f - 0.5 (E(f + delta) - E(f)) / delta with the step's other component f + 0. Unvisited pixels
// are costed but not written. Throws std::invalid_argument for a unit without blocks, a count
// other than 1 or 2 or more than kMaxCandidates candidates.
void refineBlocks(CostUnit unit, const LevelCostContext& level, const PixelBlock* blocks, int count,
                  const std::ptrdiff_t* candidateOffsets, int candidates, float gradientDelta);

}  // namespace velmora
