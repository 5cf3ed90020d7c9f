// The propagation sweeps, the gradients' differences, the flow job, the ring gains and the seam
// warp against plain loops and calls written from their formulas: the fast paths cost candidates in
// batches of vector lanes (every unit the processor has), refine neighbouring pixels together,
// share prepared inputs and copy the flow at integer positions, and must still give the same bits.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "common/status.h"
#include "flow/flow_pyramid.h"
#include "flow/level_refinement.h"
#include "flow/optical_flow.h"
#include "flow/ring_brightness.h"
#include "flow/seam_interpolation.h"
#include "support/test_support.h"

namespace velmora {
namespace {

using testing::sameBits;

// Bilinear sample, the position clamped to [0, size - 2] first at 0, then at the upper bound.
float sample(const cv::Mat& image, float x, float y) {
  x = std::min(x > 0.0f ? x : 0.0f, image.cols - 2.0f);  // NaN reads as 0
  y = std::min(y > 0.0f ? y : 0.0f, image.rows - 2.0f);
  const int i = static_cast<int>(x), j = static_cast<int>(y);
  const float u = x - i, v = y - j, s00 = image.at<float>(j, i), s01 = image.at<float>(j, i + 1),
              s10 = image.at<float>(j + 1, i), s11 = image.at<float>(j + 1, i + 1);
  return s00 + (s01 - s00) * u + (s10 - s00) * v + (s00 + s11 - s01 - s10) * u * v;
}

float cost(const SweepInputs& in, int x, int y, cv::Vec2f f) {
  const float W = static_cast<float>(in.gradient0x.cols),
              H = static_cast<float>(in.gradient0x.rows);
  const float ex = in.gradient0x.at<float>(y, x) - sample(in.gradient1x, x + f[0], y + f[1]);
  const float ey = in.gradient0y.at<float>(y, x) - sample(in.gradient1y, x + f[0], y + f[1]);
  const cv::Vec2f p = in.prior.at<cv::Vec2f>(y, x);
  return std::sqrt(ex * ex + ey * ey) +
         0.012f * std::sqrt((f[0] - p[0]) * (f[0] - p[0]) + (f[1] - p[1]) * (f[1] - p[1])) +
         0.02f * std::fabs(f[1]) / W + 0.02f * std::fabs(f[0]) / H;
}

std::vector<CostUnit> availableUnits() {
  std::vector<CostUnit> units;
  for (CostUnit unit : {CostUnit::kPlain, CostUnit::kSse2, CostUnit::kAvx2}) {
    if (costUnitAvailable(unit)) units.push_back(unit);
  }
  return units;
}

// Every unit costs every lane as the formula does, for batches of every length (so every partial
// vector occurs) and flows that reach past every border or are not finite.
TEST(CostReference, EveryUnitCostsEveryLaneAsTheFormula) {
  cv::RNG rng(8);
  const cv::Size size(13, 7);  // odd, so no row starts on a vector boundary
  SweepInputs in;
  for (cv::Mat* m : {&in.gradient0x, &in.gradient0y, &in.gradient1x, &in.gradient1y}) {
    m->create(size, CV_32F);
    rng.fill(*m, cv::RNG::UNIFORM, -1.0f, 1.0f);
  }
  in.prior.create(size, CV_32FC2);
  rng.fill(in.prior, cv::RNG::UNIFORM, -2.0f, 2.0f);
  const LevelCostContext level{in.gradient1x.ptr<float>(),
                               in.gradient1y.ptr<float>(),
                               static_cast<std::size_t>(size.width),
                               size.width - 2.0f,
                               size.height - 2.0f,
                               static_cast<float>(size.width),
                               static_cast<float>(size.height)};
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float special[][2] = {{-0.0f, 0.0f},     {nan, 1.5f},   {2.0f, nan},   {-40.0f, 30.0f},
                              {11.999f, 5.999f}, {12.0f, 6.0f}, {-0.5f, -0.5f}};
  for (int count = 1; count <= CostBatch::kCapacity; ++count) {
    CostBatch batch;
    for (int i = 0; i < CostBatch::kPixels; ++i) {
      const int x = (i * 5) % size.width, y = (i * 3) % size.height;
      const cv::Vec2f p = in.prior.at<cv::Vec2f>(y, x);
      batch.setPixel(i, {static_cast<float>(x), static_cast<float>(y),
                         in.gradient0x.at<float>(y, x), in.gradient0y.at<float>(y, x), p[0], p[1]});
    }
    for (int k = 0; k < count; ++k) {
      const bool odd = k % 4 == 3;
      const float fx = odd ? special[k % 7][0] : rng.uniform(-16.0f, 16.0f);
      const float fy = odd ? special[k % 7][1] : rng.uniform(-9.0f, 9.0f);
      batch.setLane(k, (k * 3) % CostBatch::kPixels, fx, fy);
    }
    for (CostUnit unit : availableUnits()) {
      CostBatch costed = batch;
      evaluateCosts(unit, level, costed, count);
      for (int k = 0; k < count; ++k) {
        const int i = batch.pixel[k];
        const float expected = cost(in, static_cast<int>(batch.x[i]), static_cast<int>(batch.y[i]),
                                    cv::Vec2f(batch.fx[k], batch.fy[k]));
        // A NaN cost never wins a comparison, whatever its sign bit.
        const bool same = std::isnan(expected)
                              ? std::isnan(costed.cost[k])
                              : std::memcmp(&costed.cost[k], &expected, sizeof(float)) == 0;
        EXPECT_TRUE(same) << "unit " << int(unit) << " count " << count << " lane " << k;
      }
    }
  }
}

// One pixel at a time in visiting order, each candidate costed and taken on the spot.
void referenceSweep(const SweepInputs& in, cv::Mat& flow, bool forward, bool wide) {
  const int W = flow.cols, H = flow.rows, s = wide ? 2 : 1, limit = wide ? 10 : 2;
  for (int row = 0; row < H; ++row) {
    for (int column = 0; column < W; ++column) {
      const int y = forward ? row : H - 1 - row, x = forward ? column : W - 1 - column;
      if (!(in.alpha0.at<float>(y, x) > 0.9f && in.alpha1.at<float>(y, x) > 0.9f)) continue;
      cv::Vec2f& f = flow.at<cv::Vec2f>(y, x);
      float best = cost(in, x, y, f);
      const auto consider = [&](cv::Vec2f k) {
        const float c = cost(in, x, y, k);
        if (c < best) f = k, best = c;
      };
      for (int d = s; d < limit; d += s) {
        if (forward ? x > d : x < W - d) consider(flow.at<cv::Vec2f>(y, forward ? x - d : x + d));
        if (forward ? y > d : y < H - d) consider(flow.at<cv::Vec2f>(forward ? y - d : y + d, x));
      }
      const float ex = cost(in, x, y, cv::Vec2f(f[0] + 0.001f, f[1] + 0.0f));
      const float ey = cost(in, x, y, cv::Vec2f(f[0] + 0.0f, f[1] + 0.001f));
      f = cv::Vec2f(f[0] - 0.5f * (ex - best) / 0.001f, f[1] - 0.5f * (ey - best) / 0.001f);
    }
  }
}

TEST(SweepReference, BothSweepsEqualThePlainLoopNarrowAndWide) {
  cv::RNG rng(31);
  // Alphas valid at about one pixel in six, so runs of valid pixels of every length occur, and
  // valid everywhere (37 x 30), where every flow a pixel reads has been refined before it; and a
  // flow reaching past the borders.
  for (const cv::Size size :
       {cv::Size(37, 23), cv::Size(2, 9), cv::Size(64, 3), cv::Size(37, 30)}) {
    const bool everywhere = size.height == 30;
    SweepInputs in;
    for (cv::Mat* m : {&in.gradient0x, &in.gradient0y, &in.gradient1x, &in.gradient1y, &in.alpha0,
                       &in.alpha1, &in.prior}) {
      const bool alpha = m == &in.alpha0 || m == &in.alpha1, prior = m == &in.prior;
      m->create(size, prior ? CV_32FC2 : CV_32F);
      rng.fill(*m, cv::RNG::UNIFORM, alpha ? 0.75f : prior ? -2.0f : -1.0f, prior ? 2.0f : 1.0f);
      if (alpha && everywhere) m->setTo(1.0f);
    }
    cv::Mat start(size, CV_32FC2);
    rng.fill(start, cv::RNG::UNIFORM, -6.0f, 6.0f);
    for (bool wide : {false, true}) {
      for (bool forward : {true, false}) {
        cv::Mat expected = start.clone();
        referenceSweep(in, expected, forward, wide);
        ASSERT_FALSE(sameBits(expected, start)) << "the sweep changed nothing";
        for (CostUnit unit : availableUnits()) {
          cv::Mat flow = start.clone();
          forward ? forwardSweep(in, flow, wide, unit) : backwardSweep(in, flow, wide, unit);
          EXPECT_TRUE(sameBits(flow, expected))
              << size << " wide " << wide << " forward " << forward << " unit " << int(unit);
        }
      }
    }
  }
}

// The gradients' differences as cv::Sobel (kernel size 1, replicated border) gives them, on thin
// and wide images, grey values and values of both signs and every magnitude.
TEST(CentralDifferencesReference, EqualCvSobelWithKernelSizeOne) {
  cv::RNG rng(8);
  for (cv::Size size :
       {cv::Size(1, 1), cv::Size(1, 6), cv::Size(7, 1), cv::Size(2, 2), cv::Size(131, 67)}) {
    for (double range : {1.0, 1e30}) {
      cv::Mat grey(size, CV_32F);
      rng.fill(grey, cv::RNG::UNIFORM, range == 1.0 ? 0.0 : -range, range);
      cv::Mat dx, dy, expectedX, expectedY;
      centralDifferences(grey, dx, dy);
      cv::Sobel(grey, expectedX, -1, 1, 0, 1, 1.0, 0.0, cv::BORDER_REPLICATE);
      cv::Sobel(grey, expectedY, -1, 0, 1, 1, 1.0, 0.0, cv::BORDER_REPLICATE);
      EXPECT_TRUE(sameBits(dx, expectedX)) << size << " range " << range;
      EXPECT_TRUE(sameBits(dy, expectedY)) << size << " range " << range;
    }
  }
  cv::Mat dx, dy;
  EXPECT_THROW(centralDifferences(cv::Mat(4, 4, CV_8U, cv::Scalar(1)), dx, dy), Failure);
}

// The flow job as a chain of plain OpenCV calls around the level refinement.
cv::Mat referenceFlowJob(const cv::Mat& first, const cv::Mat& second, int hint) {
  const cv::Size half(static_cast<int>(first.cols * 0.5), static_cast<int>(first.rows * 0.5));
  cv::Mat grey[2], alpha[2];
  const cv::Mat* inputs[2] = {&first, &second};
  for (int k = 0; k < 2; ++k) {
    cv::Mat small, grey8, channels[4];
    cv::resize(*inputs[k], small, half, 0.0, 0.0, cv::INTER_CUBIC);
    cv::split(small, channels);
    cv::cvtColor(small, grey8, cv::COLOR_BGRA2GRAY);
    grey8.convertTo(grey[k], CV_32F, 1.0);
    grey[k].convertTo(grey[k], CV_32F, 0.003921568859368563);
    channels[3].convertTo(alpha[k], CV_32F, 1.0);
    alpha[k].convertTo(alpha[k], CV_32F, 0.003921568859368563);
    cv::GaussianBlur(grey[k], grey[k], cv::Size(5, 5), 0.25, 0.0, cv::BORDER_DEFAULT);
  }
  const auto g0 = buildPyramid(grey[0]), g1 = buildPyramid(grey[1]);
  const auto a0 = buildPyramid(alpha[0]), a1 = buildPyramid(alpha[1]);
  cv::Mat flow, full, result;
  for (std::size_t level = g0.size(); level-- > 0;) {
    refineLevel(g0[level], g1[level], a0[level], a1[level], flow, hint, true);
    if (level > 0) {
      cv::resize(flow, full, g0[level - 1].size(), 0.0, 0.0, cv::INTER_CUBIC);
      flow = full * 1.1363636255264282;
    }
  }
  cv::resize(flow, full, first.size(), 0.0, 0.0, cv::INTER_LINEAR);
  full *= 2.0;
  cv::GaussianBlur(full, result, cv::Size(3, 3), 1.0, 0.0, cv::BORDER_DEFAULT);
  return result;
}

TEST(FlowJobReference, EqualsThePlainChainOfCalls) {
  cv::RNG rng(12);
  cv::Mat texture(80, 132, CV_8UC3), shifted, first, second;
  rng.fill(texture, cv::RNG::UNIFORM, 0, 256);
  cv::GaussianBlur(texture, texture, cv::Size(5, 5), 1.5);
  cv::warpAffine(texture, shifted, cv::Matx23d(1, 0, -3, 0, 1, 1), texture.size(), cv::INTER_LINEAR,
                 cv::BORDER_REFLECT);
  cv::cvtColor(texture, first, cv::COLOR_BGR2BGRA);
  cv::cvtColor(shifted, second, cv::COLOR_BGR2BGRA);
  // Partial and blank validity, as cut-outs have.
  first.colRange(88, 132).setTo(cv::Scalar::all(0));
  second.colRange(0, 44).setTo(cv::Scalar::all(0));
  for (int x = 44; x < 88; x += 7) first.col(x).setTo(cv::Scalar(10, 20, 30, 128));
  // Inputs prepared once serve both directions, as the overlap job uses them.
  const FlowInput preparedFirst = prepareFlowInput(first),
                  preparedSecond = prepareFlowInput(second);
  for (int hint : {kHintLeftward, kHintNoSearch}) {
    cv::Mat flow, forward, backward;
    computeOpticalFlow(first, second, flow, hint, true);
    EXPECT_TRUE(sameBits(flow, referenceFlowJob(first, second, hint))) << "hint " << hint;
    computeOpticalFlow(preparedFirst, preparedSecond, forward, hint, true);
    EXPECT_TRUE(sameBits(forward, flow)) << "hint " << hint;
    computeOpticalFlow(preparedSecond, preparedFirst, backward, hint, true);
    EXPECT_TRUE(sameBits(backward, referenceFlowJob(second, first, hint))) << "hint " << hint;
  }
  cv::Mat flow;
  EXPECT_THROW(computeOpticalFlow(preparedFirst, prepareFlowInput(first.colRange(0, 100)), flow,
                                  kHintLeftward, true),
               Failure);
}

TEST(RingBrightnessReference, GainsApplyAsThePlainPerValueLoop) {
  constexpr unsigned kWidth = 120, kHeight = 40;
  cv::RNG rng(77);
  for (int type : {CV_8UC3, CV_8UC4}) {
    std::vector<cv::Mat> ring(kFullRing), expected(kFullRing);
    for (int k = 0; k < kFullRing; ++k) {
      ring[k].create(kHeight, kWidth, type);
      rng.fill(ring[k], cv::RNG::UNIFORM, 20 + 15 * k, 200 + 9 * k);
      expected[k] = ring[k].clone();
    }
    const BrightnessStrips strips = brightnessStrips(kWidth, kHeight);
    // The ratio of the HSV value sums over the strips' middle rows, in row order.
    const auto valueSum = [](const cv::Mat& image, const cv::Rect& strip) {
      cv::Mat hsv;
      cv::cvtColor(image(strip), hsv, cv::COLOR_BGR2HSV);
      float sum = 0.0f;
      for (int y = static_cast<int>(strip.height * 0.1), n = 0;
           n < static_cast<int>(strip.height * 0.8); ++y, ++n) {
        for (int x = 0; x < strip.width; ++x) sum += hsv.at<cv::Vec3b>(y, x)[2];
      }
      return sum;
    };
    std::array<float, kFullRing> ratios{};
    for (int i = 0; i < kFullRing; ++i) {
      ratios[i] = brightnessRatio(ring[i], ring[(i + 1) % kFullRing], strips);
      const float expectedRatio =
          valueSum(ring[i], strips.inFirst) / valueSum(ring[(i + 1) % kFullRing], strips.inSecond);
      EXPECT_EQ(ratios[i], expectedRatio) << "pair " << i;
    }
    const RingGains g = ringGains(ratios);
    for (int k = 0; k < kFullRing; ++k) {
      for (int y = 0; y < static_cast<int>(kHeight); ++y) {
        for (int x = 0; x < static_cast<int>(kWidth); ++x) {
          // Image 0 ramps from the ring's product to 1 over the 80 degrees from 140 degrees.
          const float t =
              std::min(std::max((x - kWidth * 0.3888889f) / (kWidth * 0.22222222f), 0.0f), 1.0f);
          const float ramp = (1 - t) * g.products[5] / g.normaliser + t * 1 / g.normaliser;
          uchar* pixel = expected[k].ptr<uchar>(y) + x * expected[k].channels();
          for (int c = 0; c < 3; ++c) {  // round(clamp(value, 0, 255)), halves away from zero
            const float value =
                k > 0 ? pixel[c] * g.products[k - 1] / g.normaliser : pixel[c] * ramp;
            pixel[c] = static_cast<uchar>(std::round(std::min(std::max(value, 0.0f), 255.0f)));
          }
        }
      }
    }
    equaliseRingBrightness(ring, kFullRing, kWidth, kHeight);
    for (int k = 0; k < kFullRing; ++k)
      EXPECT_TRUE(sameBits(ring[k], expected[k])) << "image " << k << " type " << type;
  }
}

// The warp as read: the flow cubic-resampled at the grid positions, the image cubic-sampled at
// the displaced positions, the alpha scaled by 1 - s.
WarpedImage referenceWarp(const InterpolationGrid& grid, const cv::Mat& image, const cv::Mat& flow,
                          BandSide side) {
  const auto share = [&](int x) {
    const float t = static_cast<float>(x) / static_cast<float>(grid.columns);
    return side == BandSide::kLeading ? t : 1.0f - t;
  };
  cv::Mat positions(grid.rows, grid.columns, CV_32FC2), resampled;
  positions.forEach<cv::Vec2f>([](cv::Vec2f& p, const int* at) { p = cv::Vec2f(at[1], at[0]); });
  cv::remap(flow, resampled, positions, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_CONSTANT);
  WarpedImage warped;
  warped.magnitude.create(grid.rows, grid.columns, CV_32F);
  for (int y = 0; y < grid.rows; ++y) {
    for (int x = 0; x < grid.columns; ++x) {
      const cv::Vec2f f = resampled.at<cv::Vec2f>(y, x);
      positions.at<cv::Vec2f>(y, x) = cv::Vec2f(x + share(x) * f[0], y + share(x) * f[1]);
      warped.magnitude.at<float>(y, x) = std::sqrt(f[0] * f[0] + f[1] * f[1]);
    }
  }
  cv::remap(image, warped.image, positions, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_CONSTANT,
            cv::Scalar::all(0));
  for (int y = 0; y < grid.rows; ++y) {
    for (int x = 0; x < grid.columns; ++x) {
      uchar& alpha = warped.image.at<cv::Vec4b>(y, x)[3];
      alpha = static_cast<uchar>((1.0f - share(x)) * alpha);
    }
  }
  return warped;
}

TEST(SeamWarpReference, EqualsCubicResamplingOfTheFlowOnEveryGrid) {
  cv::RNG rng(5);
  cv::Mat image(20, 30, CV_8UC4), flow(20, 30, CV_32FC2);
  rng.fill(image, cv::RNG::UNIFORM, 0, 256);
  rng.fill(flow, cv::RNG::UNIFORM, -4.0f, 4.0f);
  flow.at<cv::Vec2f>(3, 4) = cv::Vec2f(-0.0f, 0.0f);
  flow.at<cv::Vec2f>(5, 0) = cv::Vec2f(0.0f, -0.0f);
  cv::Mat nonFinite = flow.clone();
  nonFinite.at<cv::Vec2f>(7, 8)[0] = std::numeric_limits<float>::quiet_NaN();
  nonFinite.at<cv::Vec2f>(12, 29)[1] = std::numeric_limits<float>::infinity();
  // The grid of the flow's size, wider and lower, narrower and higher.
  for (const InterpolationGrid grid :
       {InterpolationGrid{30, 20}, InterpolationGrid{41, 13}, InterpolationGrid{17, 26}}) {
    for (const cv::Mat* field : {&flow, &nonFinite}) {
      for (BandSide side : {BandSide::kLeading, BandSide::kTrailing}) {
        const WarpedImage expected = referenceWarp(grid, image, *field, side);
        const WarpedImage warped = warpByFlow(grid, image, *field, side);
        SCOPED_TRACE(std::to_string(grid.columns) + "x" + std::to_string(grid.rows) +
                     (field == &flow ? " finite" : " non-finite"));
        EXPECT_TRUE(sameBits(warped.image, expected.image));
        EXPECT_TRUE(sameBits(warped.magnitude, expected.magnitude));
      }
    }
  }
}

}  // namespace
}  // namespace velmora
