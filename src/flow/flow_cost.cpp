#include "flow/flow_cost.h"

#include <cstdlib>
#include <stdexcept>

#if defined(__SSE2__) && (defined(__x86_64__) || defined(__i386__))
#define VELMORA_COST_SSE2 1
#include <immintrin.h>
#endif
// The eight-lane unit is compiled into this file alone, for the functions marked with
// VELMORA_AVX2, and runs only where the processor reports AVX2. It enables no fused multiply-add:
// every product is rounded before it is added, as in the plain code.
#if defined(VELMORA_COST_SSE2) && (defined(__GNUC__) || defined(__clang__))
#define VELMORA_COST_AVX2 1
#define VELMORA_AVX2 __attribute__((target("avx2")))
#endif

namespace velmora {
namespace {

// Fills lanes [count, end) with copies of lane 0 so that whole vectors can be costed.
void padLanes(CostBatch& batch, int count, int end) {
  for (int k = count; k < end; ++k) batch.setLane(k, batch.pixel[0], batch.fx[0], batch.fy[0]);
}

int roundUp(int count, int width) {
  return (count + width - 1) / width * width;
}

void evaluatePlain(const LevelCostContext& level, CostBatch& batch, int count) {
  for (int k = 0; k < count; ++k) {
    const int i = batch.pixel[k];
    const PixelTerms pixel{batch.x[i],          batch.y[i],      batch.gradient0x[i],
                           batch.gradient0y[i], batch.priorX[i], batch.priorY[i]};
    batch.cost[k] = costAt(level, pixel, batch.fx[k], batch.fy[k]);
  }
}

#if defined(VELMORA_COST_SSE2)
// Lane for lane the same IEEE operations in the same order as costAt (max/min keep the clamp's
// NaN and signed-zero behaviour: a NaN or -0 coordinate reads as +0).

// s00 + (s01 - s00) u + (s10 - s00) v + (s00 + s11 - s01 - s10) u v, as sampleAt.
inline __m128 bilinear4(__m128 s00, __m128 s01, __m128 s10, __m128 s11, __m128 u, __m128 v) {
  __m128 value = _mm_add_ps(s00, _mm_mul_ps(_mm_sub_ps(s01, s00), u));
  value = _mm_add_ps(value, _mm_mul_ps(_mm_sub_ps(s10, s00), v));
  const __m128 cross = _mm_sub_ps(_mm_sub_ps(_mm_add_ps(s00, s11), s01), s10);
  return _mm_add_ps(value, _mm_mul_ps(_mm_mul_ps(cross, u), v));
}

// Two neighbouring floats at p in lanes 0 and 1 and two at q in lanes 2 and 3 (8-byte loads,
// which need no alignment).
inline __m128 pairsAt(const float* p, const float* q) {
  const __m128 low = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
  return _mm_loadh_pi(low, reinterpret_cast<const __m64*>(q));
}

// The bilinear samples of one image at four located cells (`at`: the cells' top-left offsets):
// each cell's top and bottom pairs regrouped into s00, s01, s10 and s11 across the lanes.
inline __m128 sample4(const float* image, std::size_t stride, const std::size_t* at, __m128 u,
                      __m128 v) {
  const __m128 top01 = pairsAt(image + at[0], image + at[1]);
  const __m128 top23 = pairsAt(image + at[2], image + at[3]);
  const __m128 bottom01 = pairsAt(image + at[0] + stride, image + at[1] + stride);
  const __m128 bottom23 = pairsAt(image + at[2] + stride, image + at[3] + stride);
  return bilinear4(_mm_shuffle_ps(top01, top23, _MM_SHUFFLE(2, 0, 2, 0)),
                   _mm_shuffle_ps(top01, top23, _MM_SHUFFLE(3, 1, 3, 1)),
                   _mm_shuffle_ps(bottom01, bottom23, _MM_SHUFFLE(2, 0, 2, 0)),
                   _mm_shuffle_ps(bottom01, bottom23, _MM_SHUFFLE(3, 1, 3, 1)), u, v);
}

// Entry pixel[k .. k + 3] of one of the batch's per-pixel arrays.
inline __m128 pixelLanes4(const float* terms, const int* pixel) {
  return _mm_setr_ps(terms[pixel[0]], terms[pixel[1]], terms[pixel[2]], terms[pixel[3]]);
}

void evaluateSse2(const LevelCostContext& level, CostBatch& batch, int count) {
  const int end = roundUp(count, 4);
  padLanes(batch, count, end);
  const __m128 zero = _mm_setzero_ps();
  const __m128 maxX = _mm_set1_ps(level.maxX);
  const __m128 maxY = _mm_set1_ps(level.maxY);
  const __m128 absMask = _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff));
  const __m128 priorWeight = _mm_set1_ps(kPriorWeight);
  const __m128 weight = _mm_set1_ps(kDisplacementWeight);
  const __m128 width = _mm_set1_ps(level.width);
  const __m128 height = _mm_set1_ps(level.height);
  const std::size_t stride = level.stride;
  for (int k = 0; k < end; k += 4) {
    const int* pixel = batch.pixel + k;
    const __m128 fx = _mm_load_ps(batch.fx + k);
    const __m128 fy = _mm_load_ps(batch.fy + k);
    const __m128 px =
        _mm_min_ps(_mm_max_ps(_mm_add_ps(pixelLanes4(batch.x, pixel), fx), zero), maxX);
    const __m128 py =
        _mm_min_ps(_mm_max_ps(_mm_add_ps(pixelLanes4(batch.y, pixel), fy), zero), maxY);
    const __m128i column = _mm_cvttps_epi32(px);
    const __m128i row = _mm_cvttps_epi32(py);
    const __m128 u = _mm_sub_ps(px, _mm_cvtepi32_ps(column));
    const __m128 v = _mm_sub_ps(py, _mm_cvtepi32_ps(row));
    alignas(16) int columns[4];
    alignas(16) int rows[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(columns), column);
    _mm_store_si128(reinterpret_cast<__m128i*>(rows), row);
    std::size_t at[4];
    for (int lane = 0; lane < 4; ++lane) {
      at[lane] = static_cast<std::size_t>(rows[lane]) * stride + columns[lane];
    }
    const __m128 ex = _mm_sub_ps(pixelLanes4(batch.gradient0x, pixel),
                                 sample4(level.gradient1x, stride, at, u, v));
    const __m128 ey = _mm_sub_ps(pixelLanes4(batch.gradient0y, pixel),
                                 sample4(level.gradient1y, stride, at, u, v));
    const __m128 dx = _mm_sub_ps(fx, pixelLanes4(batch.priorX, pixel));
    const __m128 dy = _mm_sub_ps(fy, pixelLanes4(batch.priorY, pixel));
    __m128 cost = _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(ex, ex), _mm_mul_ps(ey, ey)));
    cost = _mm_add_ps(
        cost,
        _mm_mul_ps(priorWeight, _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(dx, dx), _mm_mul_ps(dy, dy)))));
    cost = _mm_add_ps(cost, _mm_div_ps(_mm_mul_ps(weight, _mm_and_ps(fy, absMask)), width));
    cost = _mm_add_ps(cost, _mm_div_ps(_mm_mul_ps(weight, _mm_and_ps(fx, absMask)), height));
    _mm_store_ps(batch.cost + k, cost);
  }
}
#endif

#if defined(VELMORA_COST_AVX2)
VELMORA_AVX2 inline __m256 bilinear8(__m256 s00, __m256 s01, __m256 s10, __m256 s11, __m256 u,
                                     __m256 v) {
  __m256 value = _mm256_add_ps(s00, _mm256_mul_ps(_mm256_sub_ps(s01, s00), u));
  value = _mm256_add_ps(value, _mm256_mul_ps(_mm256_sub_ps(s10, s00), v));
  const __m256 cross = _mm256_sub_ps(_mm256_sub_ps(_mm256_add_ps(s00, s11), s01), s10);
  return _mm256_add_ps(value, _mm256_mul_ps(_mm256_mul_ps(cross, u), v));
}

// The pairs at p and q in the low half, those at r and s in the high half.
VELMORA_AVX2 inline __m256 pairsAt(const float* p, const float* q, const float* r, const float* s) {
  const __m128 low =
      _mm_loadh_pi(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))),
                   reinterpret_cast<const __m64*>(q));
  const __m128 high =
      _mm_loadh_pi(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(r))),
                   reinterpret_cast<const __m64*>(s));
  return _mm256_insertf128_ps(_mm256_castps128_ps256(low), high, 1);
}

// sample4 on eight cells: lanes 0, 1, 4 and 5 come from one vector of pairs, lanes 2, 3, 6 and 7
// from the other, so that the in-lane shuffles put every lane in its place.
VELMORA_AVX2 inline __m256 sample8(const float* image, std::size_t stride, const int* at, __m256 u,
                                   __m256 v) {
  const float* b = image + stride;
  const __m256 topA = pairsAt(image + at[0], image + at[1], image + at[4], image + at[5]);
  const __m256 topB = pairsAt(image + at[2], image + at[3], image + at[6], image + at[7]);
  const __m256 bottomA = pairsAt(b + at[0], b + at[1], b + at[4], b + at[5]);
  const __m256 bottomB = pairsAt(b + at[2], b + at[3], b + at[6], b + at[7]);
  return bilinear8(_mm256_shuffle_ps(topA, topB, _MM_SHUFFLE(2, 0, 2, 0)),
                   _mm256_shuffle_ps(topA, topB, _MM_SHUFFLE(3, 1, 3, 1)),
                   _mm256_shuffle_ps(bottomA, bottomB, _MM_SHUFFLE(2, 0, 2, 0)),
                   _mm256_shuffle_ps(bottomA, bottomB, _MM_SHUFFLE(3, 1, 3, 1)), u, v);
}

// What every lane's cost reads that is fixed for one level, in registers.
struct LevelLanes8 {
  __m256 maxX, maxY, width, height;
  __m256i rowStride;
  const float* gradient1x;
  const float* gradient1y;
  std::size_t stride;
};

VELMORA_AVX2 inline LevelLanes8 levelLanes8(const LevelCostContext& level) {
  return {_mm256_set1_ps(level.maxX),
          _mm256_set1_ps(level.maxY),
          _mm256_set1_ps(level.width),
          _mm256_set1_ps(level.height),
          _mm256_set1_epi32(static_cast<int>(level.stride)),
          level.gradient1x,
          level.gradient1y,
          level.stride};
}

// Eight costs: lane k costs flow (fx[k], fy[k]) at the pixel whose terms are in lane k of the
// term vectors.
VELMORA_AVX2 inline __m256 costs8(const LevelLanes8& level, __m256 pixelX, __m256 pixelY,
                                  __m256 gradient0x, __m256 gradient0y, __m256 priorX,
                                  __m256 priorY, __m256 fx, __m256 fy) {
  const __m256 zero = _mm256_setzero_ps();
  const __m256 absMask = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
  const __m256 priorWeight = _mm256_set1_ps(kPriorWeight);
  const __m256 weight = _mm256_set1_ps(kDisplacementWeight);
  const __m256 px = _mm256_min_ps(_mm256_max_ps(_mm256_add_ps(pixelX, fx), zero), level.maxX);
  const __m256 py = _mm256_min_ps(_mm256_max_ps(_mm256_add_ps(pixelY, fy), zero), level.maxY);
  const __m256i column = _mm256_cvttps_epi32(px);
  const __m256i row = _mm256_cvttps_epi32(py);
  const __m256 u = _mm256_sub_ps(px, _mm256_cvtepi32_ps(column));
  const __m256 v = _mm256_sub_ps(py, _mm256_cvtepi32_ps(row));
  // The cells' offsets in 32 bits: a level holds fewer than 2^31 values.
  alignas(32) int at[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(at),
                     _mm256_add_epi32(_mm256_mullo_epi32(row, level.rowStride), column));
  const __m256 ex = _mm256_sub_ps(gradient0x, sample8(level.gradient1x, level.stride, at, u, v));
  const __m256 ey = _mm256_sub_ps(gradient0y, sample8(level.gradient1y, level.stride, at, u, v));
  const __m256 dx = _mm256_sub_ps(fx, priorX);
  const __m256 dy = _mm256_sub_ps(fy, priorY);
  __m256 cost = _mm256_sqrt_ps(_mm256_add_ps(_mm256_mul_ps(ex, ex), _mm256_mul_ps(ey, ey)));
  cost = _mm256_add_ps(
      cost, _mm256_mul_ps(priorWeight, _mm256_sqrt_ps(_mm256_add_ps(_mm256_mul_ps(dx, dx),
                                                                    _mm256_mul_ps(dy, dy)))));
  cost = _mm256_add_ps(
      cost, _mm256_div_ps(_mm256_mul_ps(weight, _mm256_and_ps(fy, absMask)), level.width));
  cost = _mm256_add_ps(
      cost, _mm256_div_ps(_mm256_mul_ps(weight, _mm256_and_ps(fx, absMask)), level.height));
  return cost;
}

VELMORA_AVX2 void evaluateAvx2(const LevelCostContext& level, CostBatch& batch, int count) {
  const int end = roundUp(count, 8);
  padLanes(batch, count, end);
  const LevelLanes8 lanes = levelLanes8(level);
  // The per-pixel terms stay in registers; each lane picks its pixel's entry.
  const __m256 pixelX = _mm256_load_ps(batch.x);
  const __m256 pixelY = _mm256_load_ps(batch.y);
  const __m256 pixelGradientX = _mm256_load_ps(batch.gradient0x);
  const __m256 pixelGradientY = _mm256_load_ps(batch.gradient0y);
  const __m256 pixelPriorX = _mm256_load_ps(batch.priorX);
  const __m256 pixelPriorY = _mm256_load_ps(batch.priorY);
  for (int k = 0; k < end; k += 8) {
    const __m256i pixel = _mm256_load_si256(reinterpret_cast<const __m256i*>(batch.pixel + k));
    const __m256 cost = costs8(
        lanes, _mm256_permutevar8x32_ps(pixelX, pixel), _mm256_permutevar8x32_ps(pixelY, pixel),
        _mm256_permutevar8x32_ps(pixelGradientX, pixel),
        _mm256_permutevar8x32_ps(pixelGradientY, pixel),
        _mm256_permutevar8x32_ps(pixelPriorX, pixel), _mm256_permutevar8x32_ps(pixelPriorY, pixel),
        _mm256_load_ps(batch.fx + k), _mm256_load_ps(batch.fy + k));
    _mm256_store_ps(batch.cost + k, cost);
  }
}

VELMORA_AVX2 inline __m256 halves(__m128 low, __m128 high) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(low), high, 1);
}

// The flows at offset `offset` (in floats) from the four pixels' own, as x and y components.
VELMORA_AVX2 inline void flowsAt(float* const* flow, std::ptrdiff_t offset, __m128& fx,
                                 __m128& fy) {
  const __m128 first = pairsAt(flow[0] + offset, flow[1] + offset);
  const __m128 second = pairsAt(flow[2] + offset, flow[3] + offset);
  fx = _mm_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0));
  fy = _mm_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1));
}

// Four values of the first block's in lanes 0 to 3 and four of the second's in lanes 4 to 7.
VELMORA_AVX2 inline __m256 fourAndFour(const float* first, const float* second) {
  return halves(_mm_loadu_ps(first), _mm_loadu_ps(second));
}

// The flows at offset `offset` (in floats) from the pixels' own: the first block's four in lanes
// 0 to 3, the second's in lanes 4 to 7.
VELMORA_AVX2 inline void flowsAt8(const PixelBlock& first, const PixelBlock& second,
                                  std::ptrdiff_t offset, __m256& fx, __m256& fy) {
  __m128 firstX, firstY, secondX, secondY;
  flowsAt(first.flow, offset, firstX, firstY);
  flowsAt(second.flow, offset, secondX, secondY);
  fx = halves(firstX, secondX);
  fy = halves(firstY, secondY);
}

// One block's pixels in lanes 0 to 3, the other's (or the same block's again) in lanes 4 to 7: one
// vector costs one candidate of all eight pixels, and the candidates' vectors, which depend on
// nothing but the flows, overlap.
VELMORA_AVX2 void refineBlocksAvx2(const LevelCostContext& level, const PixelBlock& first,
                                   const PixelBlock& second, const std::ptrdiff_t* candidateOffsets,
                                   int candidates, float gradientDelta) {
  const LevelLanes8 lanes = levelLanes8(level);
  const __m256 pixelX = fourAndFour(first.x, second.x), pixelY = fourAndFour(first.y, second.y);
  const __m256 gradient0x = fourAndFour(first.gradient0x, second.gradient0x);
  const __m256 gradient0y = fourAndFour(first.gradient0y, second.gradient0y);
  const __m256 priorX = fourAndFour(first.priorX, second.priorX);
  const __m256 priorY = fourAndFour(first.priorY, second.priorY);
  // Own flow, then the candidates in visiting order; strictly lower cost wins.
  __m256 bestX, bestY;
  flowsAt8(first, second, 0, bestX, bestY);
  __m256 best = costs8(lanes, pixelX, pixelY, gradient0x, gradient0y, priorX, priorY, bestX, bestY);
  for (int k = 0; k < candidates; ++k) {
    __m256 fx, fy;
    flowsAt8(first, second, candidateOffsets[k], fx, fy);
    const __m256 cost =
        costs8(lanes, pixelX, pixelY, gradient0x, gradient0y, priorX, priorY, fx, fy);
    const __m256 lower = _mm256_cmp_ps(cost, best, _CMP_LT_OQ);
    best = _mm256_blendv_ps(best, cost, lower);
    bestX = _mm256_blendv_ps(bestX, fx, lower);
    bestY = _mm256_blendv_ps(bestY, fy, lower);
  }
  // The gradient step.
  const __m256 zero = _mm256_setzero_ps();
  const __m256 delta = _mm256_set1_ps(gradientDelta);
  const __m256 half = _mm256_set1_ps(0.5f);
  const __m256 stepX = costs8(lanes, pixelX, pixelY, gradient0x, gradient0y, priorX, priorY,
                              _mm256_add_ps(bestX, delta), _mm256_add_ps(bestY, zero));
  const __m256 stepY = costs8(lanes, pixelX, pixelY, gradient0x, gradient0y, priorX, priorY,
                              _mm256_add_ps(bestX, zero), _mm256_add_ps(bestY, delta));
  alignas(32) float newX[8], newY[8];
  _mm256_store_ps(
      newX,
      _mm256_sub_ps(bestX, _mm256_div_ps(_mm256_mul_ps(half, _mm256_sub_ps(stepX, best)), delta)));
  _mm256_store_ps(
      newY,
      _mm256_sub_ps(bestY, _mm256_div_ps(_mm256_mul_ps(half, _mm256_sub_ps(stepY, best)), delta)));
  const PixelBlock* blocks[2] = {&first, &second};
  for (int b = 0; b < (&first == &second ? 1 : 2); ++b) {
    for (int i = 0; i < 4; ++i) {
      if (blocks[b]->visited & (1u << i)) {
        blocks[b]->flow[i][0] = newX[4 * b + i];
        blocks[b]->flow[i][1] = newY[4 * b + i];
      }
    }
  }
}
#endif

}  // namespace

bool costUnitAvailable(CostUnit unit) {
  switch (unit) {
    case CostUnit::kPlain:
      return true;
    case CostUnit::kSse2:
#if defined(VELMORA_COST_SSE2)
      return true;
#else
      return false;
#endif
    case CostUnit::kAvx2:
#if defined(VELMORA_COST_AVX2)
      return __builtin_cpu_supports("avx2") != 0;
#else
      return false;
#endif
  }
  return false;
}

CostUnit fastestCostUnit() {
  static const CostUnit fastest = [] {
    for (CostUnit unit : {CostUnit::kAvx2, CostUnit::kSse2}) {
      if (costUnitAvailable(unit)) return unit;
    }
    return CostUnit::kPlain;
  }();
  return fastest;
}

bool refinesBlocks(CostUnit unit) {
#if defined(VELMORA_COST_AVX2)
  return unit == CostUnit::kAvx2 && costUnitAvailable(unit);
#else
  (void)unit;
  return false;
#endif
}

void refineBlocks(CostUnit unit, const LevelCostContext& level, const PixelBlock* blocks, int count,
                  const std::ptrdiff_t* candidateOffsets, int candidates, float gradientDelta) {
  if (!refinesBlocks(unit) || count < 1 || count > 2 || candidates < 0 ||
      candidates > PixelBlock::kMaxCandidates) {
    throw std::invalid_argument("refineBlocks: no block unit, or a count out of range");
  }
#if defined(VELMORA_COST_AVX2)
  refineBlocksAvx2(level, blocks[0], blocks[count - 1], candidateOffsets, candidates,
                   gradientDelta);
#else
  (void)level, (void)blocks, (void)candidateOffsets, (void)gradientDelta;
#endif
}

void evaluateCosts(CostUnit unit, const LevelCostContext& level, CostBatch& batch, int count) {
  if (count < 0 || count > CostBatch::kCapacity) {
    throw std::invalid_argument("evaluateCosts: lane count out of range");
  }
  if (count == 0) return;
  switch (unit) {
#if defined(VELMORA_COST_AVX2)
    case CostUnit::kAvx2:
      evaluateAvx2(level, batch, count);
      return;
#endif
#if defined(VELMORA_COST_SSE2)
    case CostUnit::kSse2:
      evaluateSse2(level, batch, count);
      return;
#endif
    default:
      evaluatePlain(level, batch, count);
      return;
  }
}

}  // namespace velmora
