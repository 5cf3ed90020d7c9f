#include "fusion/pyramid.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace velmora {
namespace {

cv::Mat randomPlane(cv::Size size, int seed, int type = CV_32F) {
  cv::Mat image(size, type);
  cv::RNG(seed).fill(image, cv::RNG::UNIFORM, 0.0, 1.0);
  return image;
}

TEST(PyramidSizes, HalvesRoundUpAndLevelCountsFollowSinglePrecisionLogarithms) {
  const std::pair<cv::Size, cv::Size> halves[] = {{{4095, 2047}, {2048, 1024}},
                                                  {{4096, 2048}, {2048, 1024}},
                                                  {{5, 3}, {3, 2}},
                                                  {{1, 1}, {1, 1}}};
  for (const auto& [size, half] : halves) EXPECT_EQ(halfPyramidSize(size), half) << size;
  // log2 of 8192 is 12.999999 in single precision, so a shorter side of 8192 also gives 10;
  // below 8 pixels the blend keeps one level instead of none.
  const std::pair<cv::Size, int> counts[] = {{{4096, 2048}, 9},   {{8192, 4096}, 10},
                                             {{16384, 8192}, 10}, {{5472, 3648}, 9},
                                             {{64, 33}, 3},       {{5, 3}, 1}};
  for (const auto& [size, count] : counts) EXPECT_EQ(blendLevelCount(size), count) << size;
  const std::vector<cv::Size> sizes = pyramidLevelSizes({4096, 2048}, 9);
  ASSERT_EQ(sizes.size(), 9u);
  EXPECT_EQ(sizes.back(), cv::Size(16, 8));
  EXPECT_EQ(pyramidLevelSizes({8192, 4096}, 10).back(), cv::Size(16, 8));
}

// The blend assembled from whole pyramids, one channel at a time, as the streamed blend must
// reproduce it: Gaussian weights times Laplacian bands at every level, with the detail-aware and
// renormalised top level for luma.
cv::Mat blendFromWholePyramids(const std::vector<cv::Mat>& exposures,
                               const std::vector<cv::Mat>& weights) {
  const int n = blendLevelCount(exposures[0].size()), top = n - 1;
  const size_t detailed = (exposures.size() + 1) / 2 - 1;  // ceil(N / 2) - 1 exposures
  std::vector<cv::Mat> channels;
  for (int c = 0; c < 3; ++c) {
    Pyramid result = buildGaussianPyramid(cv::Mat::zeros(exposures[0].size(), CV_32F), n);
    cv::Mat topSum;
    for (size_t i = 0; i < exposures.size(); ++i) {
      cv::Mat plane, t;
      cv::extractChannel(exposures[i], plane, c);
      const Pyramid g = buildGaussianPyramid(weights[i], n), p = buildLaplacianPyramid(plane, n);
      for (int l = 0; l < (c == 0 ? top : n); ++l) result[l] += g[l].mul(p[l]);
      if (c != 0) continue;
      cv::GaussianBlur(g[top], t, {3, 3}, 1.0, 1.0);
      if (i < detailed) {
        cv::Mat detail = cv::abs(buildLaplacianPyramid(p[top], 2)[0]);
        cv::GaussianBlur(detail, detail, {3, 3}, 1.0, 1.0);
        t = t + 1.5 * detail;
      }
      result[top] += t.mul(p[top]);
      topSum = i == 0 ? t + 1e-12 : topSum + t + 1e-12;
    }
    if (c == 0) result[top] /= topSum;
    channels.push_back(collapseLaplacianPyramid(result));
  }
  cv::Mat out;
  cv::merge(channels, out);
  return out;
}

TEST(PyramidBlend, StreamedBlendEqualsTheBlendOfWholePyramids) {
  // Odd height and four levels, or a single level; two exposures get no detail term, three and
  // four one, five two.
  for (const cv::Size size : {cv::Size(150, 101), cv::Size(3, 2)}) {
    for (int count : {2, 3, 4, 5}) {
      SCOPED_TRACE(::testing::Message() << size << " x " << count);
      std::vector<cv::Mat> exposures, weights;
      cv::Mat sum(size, CV_32F, cv::Scalar(0));
      for (int i = 0; i < count; ++i) {
        exposures.push_back(randomPlane(size, 10 + i, CV_32FC3));
        weights.push_back(randomPlane(size, 20 + i));
        sum += weights.back();
      }
      for (cv::Mat& weight : weights) weight /= sum;
      cv::Mat out;
      blendExposurePyramids(exposures, weights, out);
      ASSERT_EQ(out.type(), CV_32FC3);
      EXPECT_LT(cv::norm(out, blendFromWholePyramids(exposures, weights), cv::NORM_INF), 1e-5);
      // The renormalised top level gives identical exposures back whatever the weights.
      blendExposurePyramids(std::vector<cv::Mat>(count, exposures[0]), weights, out);
      EXPECT_LT(cv::norm(out, exposures[0], cv::NORM_INF), 1e-5);
    }
  }
}

}  // namespace
}  // namespace velmora
