#include "fusion/pyramid.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace velmora {
namespace {

cv::Mat randomPlane(cv::Size size, int seed, int type = CV_32F) {
  cv::Mat image(size, type);
  cv::RNG rng(seed);
  rng.fill(image, cv::RNG::UNIFORM, 0.0, 1.0);
  return image;
}

TEST(PyramidSizes, HalvesRoundAwayFromZero) {
  EXPECT_EQ(halfPyramidSize({4095, 2047}), cv::Size(2048, 1024));
  EXPECT_EQ(halfPyramidSize({4096, 2048}), cv::Size(2048, 1024));
  EXPECT_EQ(halfPyramidSize({5, 3}), cv::Size(3, 2));
  EXPECT_EQ(halfPyramidSize({1, 1}), cv::Size(1, 1));
}

TEST(PyramidSizes, LevelCountFollowsSinglePrecisionLogarithms) {
  EXPECT_EQ(blendLevelCount({4096, 2048}), 9);
  EXPECT_EQ(blendLevelCount({8192, 4096}), 10);
  // log2 of 8192 is 12.999999 in single precision, so a shorter side of 8192 also gives 10.
  EXPECT_EQ(blendLevelCount({16384, 8192}), 10);
  EXPECT_EQ(blendLevelCount({5472, 3648}), 9);
  EXPECT_EQ(blendLevelCount({64, 33}), 3);
  // Below 8 pixels the blend keeps one level instead of none.
  EXPECT_EQ(blendLevelCount({5, 3}), 1);

  const std::vector<cv::Size> sizes = pyramidLevelSizes({4096, 2048}, 9);
  ASSERT_EQ(sizes.size(), 9u);
  EXPECT_EQ(sizes.back(), cv::Size(16, 8));
  EXPECT_EQ(pyramidLevelSizes({8192, 4096}, 10).back(), cv::Size(16, 8));
}

TEST(GaussianPyramid, LevelZeroIsACopyAndLevelsHalve) {
  cv::Mat image = randomPlane({37, 23}, 1);
  const Pyramid pyramid = buildGaussianPyramid(image, 4);
  ASSERT_EQ(pyramid.size(), 4u);
  const cv::Size expected[] = {{37, 23}, {19, 12}, {10, 6}, {5, 3}};
  for (int k = 0; k < 4; ++k) EXPECT_EQ(pyramid[k].size(), expected[k]) << k;
  const cv::Mat before = image.clone();
  image.setTo(5.0f);
  EXPECT_EQ(cv::norm(pyramid[0], before, cv::NORM_INF), 0.0);
  EXPECT_EQ(buildGaussianPyramid(before, 1).size(), 1u);
  EXPECT_EQ(buildGaussianPyramid(before, 0).size(), 1u);
}

TEST(LaplacianPyramid, CollapseReproducesTheInput) {
  const cv::Size sizes[] = {{64, 48}, {37, 23}, {33, 65}, {9, 8}};
  for (const cv::Size& size : sizes) {
    for (int type : {CV_32F, CV_32FC3}) {
      const cv::Mat image = randomPlane(size, size.width, type);
      Pyramid pyramid = buildLaplacianPyramid(image, 4);
      ASSERT_EQ(pyramid.size(), 4u);
      EXPECT_EQ(pyramid[1].size(), halfPyramidSize(size));
      // Band levels carry detail (about zero mean), the top level the low-pass image.
      EXPECT_LT(std::abs(cv::mean(pyramid[0])[0]), 0.05);
      EXPECT_NEAR(cv::mean(pyramid[3])[0], 0.5, 0.1);
      const cv::Mat collapsed = collapseLaplacianPyramid(pyramid);
      EXPECT_LT(cv::norm(collapsed, image, cv::NORM_INF), 1e-5) << size;
    }
  }
}

TEST(LaplacianPyramid, SingleLevelIsACopyOfTheImage) {
  cv::Mat image = randomPlane({6, 5}, 3);
  Pyramid pyramid = buildLaplacianPyramid(image, 1);
  ASSERT_EQ(pyramid.size(), 1u);
  EXPECT_EQ(cv::norm(pyramid[0], image, cv::NORM_INF), 0.0);
  EXPECT_NE(pyramid[0].data, image.data);
  EXPECT_EQ(cv::norm(collapseLaplacianPyramid(pyramid), image, cv::NORM_INF), 0.0);
  Pyramid empty;
  EXPECT_TRUE(collapseLaplacianPyramid(empty).empty());
}

// Y U V exposures with the given constant chroma over a luma plane.
cv::Mat exposure(const cv::Mat& luma, float u, float v) {
  cv::Mat image;
  cv::merge(std::vector<cv::Mat>{luma, cv::Mat(luma.size(), CV_32F, cv::Scalar(u)),
                                 cv::Mat(luma.size(), CV_32F, cv::Scalar(v))},
            image);
  return image;
}

cv::Mat channelOf(const cv::Mat& image, int c) {
  cv::Mat plane;
  cv::extractChannel(image, plane, c);
  return plane;
}

std::vector<cv::Mat> weightsFor(cv::Size size, std::vector<float> values) {
  std::vector<cv::Mat> weights;
  for (float value : values) weights.emplace_back(size, CV_32F, cv::Scalar(value));
  return weights;
}

const cv::Size kBlendSize(67, 45);

TEST(PyramidBlend, ConstantWeightsMixEveryChannel) {
  const cv::Mat a = exposure(randomPlane(kBlendSize, 1), 0.1f, -0.2f);
  const cv::Mat b = exposure(randomPlane(kBlendSize, 2), 0.3f, 0.4f);
  cv::Mat out;
  blendExposurePyramids({a, b}, weightsFor(kBlendSize, {0.25f, 0.75f}), out);
  ASSERT_EQ(out.type(), CV_32FC3);
  ASSERT_EQ(out.size(), kBlendSize);
  // With two exposures no exposure gets the top detail term, so luma mixes linearly too.
  const cv::Mat expected = 0.25 * a + 0.75 * b;
  EXPECT_LT(cv::norm(out, expected, cv::NORM_INF), 1e-5);
}

// The blend assembled from whole pyramids, one channel at a time, as the streamed blend must
// reproduce it: Gaussian weights times Laplacian bands at every level, with the detail-aware and
// renormalised top level for luma.
cv::Mat blendFromWholePyramids(const std::vector<cv::Mat>& exposures,
                               const std::vector<cv::Mat>& weights) {
  const int n = blendLevelCount(exposures[0].size());
  const int top = n - 1;
  std::vector<cv::Mat> channels;
  for (int c = 0; c < 3; ++c) {
    Pyramid result = buildGaussianPyramid(cv::Mat::zeros(exposures[0].size(), CV_32F), n);
    cv::Mat topSum;
    for (size_t i = 0; i < exposures.size(); ++i) {
      const Pyramid g = buildGaussianPyramid(weights[i], n);
      const Pyramid p = buildLaplacianPyramid(channelOf(exposures[i], c), n);
      for (int l = 0; l < (c == 0 ? top : n); ++l) result[l] += g[l].mul(p[l]);
      if (c != 0) continue;
      cv::Mat t;
      cv::GaussianBlur(g[top], t, {3, 3}, 1.0, 1.0);
      if (i == 0) {  // ceil(3 / 2) - 1 = 1: only the first of three exposures
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
  const cv::Size size(150, 101);  // odd height, four levels
  std::vector<cv::Mat> exposures;
  std::vector<cv::Mat> weights;
  cv::Mat sum(size, CV_32F, cv::Scalar(0));
  for (int i = 0; i < 3; ++i) {
    exposures.push_back(randomPlane(size, 10 + i, CV_32FC3));
    weights.push_back(randomPlane(size, 20 + i));
    sum += weights.back();
  }
  for (cv::Mat& weight : weights) weight /= sum;
  cv::Mat out;
  blendExposurePyramids(exposures, weights, out);
  EXPECT_LT(cv::norm(out, blendFromWholePyramids(exposures, weights), cv::NORM_INF), 1e-5);
}

TEST(PyramidBlend, IdenticalExposuresReproduceThemselves) {
  // The detail-boosted top luma weights are renormalised, so any weights give back the image.
  const cv::Mat image = exposure(randomPlane(kBlendSize, 3), 0.05f, -0.05f);
  cv::Mat out;
  blendExposurePyramids({image, image, image}, weightsFor(kBlendSize, {0.2f, 0.3f, 0.5f}), out);
  EXPECT_LT(cv::norm(out, image, cv::NORM_INF), 1e-5);
}

TEST(PyramidBlend, TopLumaDetailComesFromTheFirstExposureOnly) {
  const cv::Mat flat(kBlendSize, CV_32F, cv::Scalar(0.5f));
  const cv::Mat textured = exposure(randomPlane(kBlendSize, 4), 0.0f, 0.0f);
  const cv::Mat chosen = exposure(randomPlane(kBlendSize, 5), 0.2f, -0.1f);
  const std::vector<cv::Mat> onlyThird = weightsFor(kBlendSize, {0.0f, 0.0f, 1.0f});

  // A textured middle exposure without weight leaves the third exposure untouched.
  cv::Mat out;
  blendExposurePyramids({exposure(flat, 0, 0), textured, chosen}, onlyThird, out);
  EXPECT_LT(cv::norm(out, chosen, cv::NORM_INF), 1e-5);

  // A textured first exposure pulls the coarse luma towards itself through its detail term,
  // while chroma still comes from the weights alone.
  blendExposurePyramids({textured, exposure(flat, 0, 0), chosen}, onlyThird, out);
  EXPECT_GT(cv::norm(channelOf(out, 0), channelOf(chosen, 0), cv::NORM_INF), 1e-3);
  for (int c = 1; c < 3; ++c) {
    EXPECT_LT(cv::norm(channelOf(out, c), channelOf(chosen, c), cv::NORM_INF), 1e-5);
  }
}

TEST(PyramidBlend, SharpWeightEdgesBlendSmoothly) {
  // Left half from one exposure, right half from the other: far from the edge each side keeps
  // its exposure, and across the edge the luma has no hard step.
  const cv::Size size(128, 64);
  const cv::Mat dark = exposure(cv::Mat(size, CV_32F, cv::Scalar(0.2f)), 0, 0);
  const cv::Mat bright = exposure(cv::Mat(size, CV_32F, cv::Scalar(0.8f)), 0, 0);
  cv::Mat left(size, CV_32F, cv::Scalar(0.0f));
  left.colRange(0, 64).setTo(1.0f);
  cv::Mat out;
  blendExposurePyramids({bright, dark}, {left, 1.0 - left}, out);
  const cv::Mat luma = channelOf(out, 0);
  EXPECT_NEAR(luma.at<float>(32, 2), 0.8f, 0.05f);
  EXPECT_NEAR(luma.at<float>(32, 125), 0.2f, 0.05f);
  float largestStep = 0.0f;
  for (int x = 1; x < size.width; ++x) {
    largestStep =
        std::max(largestStep, std::abs(luma.at<float>(32, x) - luma.at<float>(32, x - 1)));
  }
  EXPECT_LT(largestStep, 0.2f);  // a hard switch would jump by 0.6
}

TEST(PyramidBlend, MismatchedInputsRaise) {
  const cv::Mat a = exposure(randomPlane(kBlendSize, 1), 0, 0);
  const cv::Mat smaller = exposure(randomPlane({30, 20}, 2), 0, 0);
  cv::Mat out;
  EXPECT_THROW(blendExposurePyramids({a, smaller}, weightsFor(kBlendSize, {0.5f, 0.5f}), out),
               cv::Exception);
}

TEST(PyramidBlend, TinyImagesStillBlend) {
  const cv::Size size(3, 2);
  const cv::Mat a = exposure(randomPlane(size, 1), 0.1f, 0.1f);
  const cv::Mat b = exposure(randomPlane(size, 2), 0.3f, 0.3f);
  cv::Mat out;
  blendExposurePyramids({a, b}, weightsFor(size, {0.5f, 0.5f}), out);
  EXPECT_LT(cv::norm(out, 0.5 * a + 0.5 * b, cv::NORM_INF), 1e-5);
  // Three exposures: the first one's detail term works on the single level as well.
  blendExposurePyramids({a, a, a}, weightsFor(size, {0.2f, 0.3f, 0.5f}), out);
  EXPECT_LT(cv::norm(out, a, cv::NORM_INF), 1e-5);
}

}  // namespace
}  // namespace velmora
