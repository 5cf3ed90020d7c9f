#include "fusion/exposure_fusion.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <opencv2/imgcodecs.hpp>

#include "support/test_support.h"

namespace velmora {
namespace {

cv::Mat row(std::vector<float> values) {
  return cv::Mat(values).reshape(1, 1).clone();
}

TEST(ExposureWeights, GaussianAroundMidLumaCutAboveTheLimitThenFixedPreference) {
  // Exactly 0.98 keeps its Gaussian weight; only values above are cut. Luma is channel 0.
  const cv::Mat weight =
      wellExposedness(row({0.6f, 0.4f, 0.0f, 0.98f, std::nextafter(0.98f, 1.0f), 1.0f}));
  const cv::Mat expected =
      row({1.0f, std::exp(-0.5f), std::exp(-4.5f), std::exp(-12.5f * 0.38f * 0.38f), 0, 0});
  EXPECT_LT(cv::norm(weight, expected, cv::NORM_INF), 1e-5);
  EXPECT_NEAR(wellExposedness(cv::Mat(1, 1, CV_32FC3, cv::Scalar(0.6, 0.9, -0.9))).at<float>(0, 0),
              1.0f, 1e-6f);

  // Pixel 0: all mid grey. Pixel 1: the third exposure over-exposed. Pixel 2: all over-exposed.
  // The maps may share one buffer: the weights must still come apart.
  const cv::Mat one = cv::Mat::ones(1, 3, CV_32F);
  std::vector<cv::Mat> weights = {one, one, one};
  computeExposureWeights(
      {row({0.6f, 0.6f, 0.99f}), row({0.6f, 0.6f, 0.99f}), row({0.6f, 0.99f, 1.0f})}, weights);
  const cv::Mat preferred[] = {row({3.0f / 22, 0.3f, 1}), row({7.0f / 22, 0.7f, 0}),
                               row({12.0f / 22, 0, 0})};
  for (int i = 0; i < 3; ++i)
    EXPECT_LT(cv::norm(weights[i], preferred[i], cv::NORM_INF), 1e-6) << i;
}

// Every column, whether the vector path or the plain tail takes it, gets the bits of the formula.
TEST(ExposureWeights, EqualThePerPixelFormulaOnEveryColumn) {
  cv::RNG rng(6);
  const cv::Size size(37, 5);  // an odd width
  std::vector<cv::Mat> exposures(3), weights(3), expected(3);
  for (int i = 0; i < 3; ++i) {
    exposures[i].create(size, CV_32F);
    rng.fill(exposures[i], cv::RNG::UNIFORM, 0.0f, 1.0f);
    weights[i].create(size, CV_32F);
    rng.fill(weights[i], cv::RNG::UNIFORM, 0.0f, 2.0f);
    // No exposure usable in a vector column and in a tail column: all over-exposed.
    for (int x : {2, 36}) exposures[i].col(x).setTo(0.99f);
    expected[i] = wellExposedness(exposures[i]);
    for (int p = 0; p < size.area(); ++p) {
      expected[i].at<float>(p) = weights[i].at<float>(p) * expected[i].at<float>(p) + 1e-12f;
    }
  }
  for (int p = 0; p < size.area(); ++p) {
    float& w1 = expected[0].at<float>(p);
    float& w2 = expected[1].at<float>(p);
    float& w3 = expected[2].at<float>(p);
    const float sum1 = w1 + w2 + w3;
    const float a = w1 / sum1 * 3.0f, b = w2 / sum1 * 7.0f, c = w3 / sum1 * 12.0f;
    const float sum2 = a + b + c;
    w1 = sum1 < 1e-6f ? 1.0f : a / sum2;
    w2 = sum1 < 1e-6f ? 0.0f : b / sum2;
    w3 = sum1 < 1e-6f ? 0.0f : c / sum2;
  }
  computeExposureWeights(exposures, weights);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(cv::norm(weights[i], expected[i], cv::NORM_INF), 0.0) << i;
  }
  EXPECT_EQ(weights[0].at<float>(4, 36), 1.0f);  // the tail's unusable column takes the first
}

// Fuses three in-memory exposures through files, with unit gains unless given.
class FuseExposures : public ::testing::Test {
 protected:
  cv::Mat fuse(const cv::Mat& first, const cv::Mat& second, const cv::Mat& third,
               cv::Vec3f gains = {1, 1, 1}) {
    const std::string paths[] = {dir_.file("1.png"), dir_.file("2.png"), dir_.file("3.png")};
    cv::imwrite(paths[0], first);
    cv::imwrite(paths[1], second);
    cv::imwrite(paths[2], third);
    cv::Mat out;
    testing::CapturedConsole console;
    EXPECT_TRUE(fuseExposures(paths[0], paths[1], paths[2], out, gains[0], gains[1], gains[2]));
    EXPECT_EQ(out.type(), CV_8UC3);
    EXPECT_EQ(out.size(), first.size());
    return out;
  }
  static cv::Mat uniform(cv::Scalar bgr) { return cv::Mat(32, 48, CV_8UC3, bgr); }
  static double gap(const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_INF); }

  testing::TempDir dir_;
};

TEST_F(FuseExposures, OverExposedEverywhereTakesTheFirstShot) {
  // Near-white tints (luma above 0.98) inside pure white, which keeps every channel maximum near
  // 1 so that the stretch leaves the tints visible.
  auto tinted = [](cv::Scalar tint) {
    cv::Mat image = uniform(cv::Scalar::all(255));
    image(cv::Rect(8, 8, 24, 16)).setTo(tint);
    return image;
  };
  const cv::Mat first = tinted({242, 250, 255}), second = tinted({255, 252, 246});
  const cv::Mat fused = fuse(first, second, tinted({250, 255, 250}));
  EXPECT_EQ(gap(fused, fuse(first, first, first)), 0.0);
  EXPECT_LE(gap(fused, first), 2.0);
  EXPECT_GE(gap(fuse(second, first, first), first), 8.0);
}

TEST_F(FuseExposures, StretchOnlyWhenEveryChannelMaximumExceedsNinetyPercent) {
  auto shot = [](double brightestBlue) {
    cv::Mat image = uniform({120, 200, 200});
    image(cv::Rect(0, 0, 8, 8)).setTo(cv::Scalar(brightestBlue, 255, 255));
    return image;
  };
  const cv::Mat below = shot(225), above = shot(240);  // blue peaks at 0.88 or 0.94
  EXPECT_LE(gap(fuse(below, below, below), below), 2.0);
  const cv::Mat stretched = fuse(above, above, above);  // by blue's maximum
  EXPECT_NEAR(stretched.at<cv::Vec3b>(20, 30)[0], 120 * 255.0 / 240, 2.0);
  EXPECT_NEAR(stretched.at<cv::Vec3b>(20, 30)[1], 200 * 255.0 / 240, 2.0);
  EXPECT_EQ(stretched.at<cv::Vec3b>(2, 2), cv::Vec3b(255, 255, 255));
}

TEST_F(FuseExposures, ShadowLiftOnlyForTheFirstShot) {
  // A dark shot beside two over-exposed ones gets all the weight; only in the first slot is it
  // lifted, by (150 - 60) / 150 * 0.8 + 1 = 1.48. A brightest channel of 150 is left alone.
  const cv::Mat dark = uniform(cv::Scalar::all(60)), white = uniform(cv::Scalar::all(255));
  const cv::Mat bright = uniform({100, 150, 120});
  EXPECT_NEAR(fuse(dark, white, white).at<cv::Vec3b>(10, 10)[1], 89, 1.0);
  EXPECT_LE(gap(fuse(white, dark, white), dark), 1.0);
  EXPECT_LE(gap(fuse(white, white, dark), dark), 1.0);
  EXPECT_LE(gap(fuse(bright, white, white), bright), 1.0);
}

TEST_F(FuseExposures, BlendsTowardsTheBetterExposedShotThenAppliesTheGains) {
  // Half, full and double exposure of a textured scene: the texture stays, between the extremes.
  cv::Mat scene(32, 48, CV_8UC3);
  cv::RNG(7).fill(scene, cv::RNG::UNIFORM, 40, 200);
  cv::Scalar mean, deviation;
  cv::meanStdDev(fuse(scene * 0.5, scene, scene * 2.0).reshape(1).col(1), mean, deviation);
  EXPECT_GT(mean[0], cv::mean(scene * 0.5)[1]);
  EXPECT_LT(mean[0], cv::mean(scene * 2.0)[1]);
  EXPECT_GT(deviation[0], 20.0);

  const cv::Mat grey = uniform(cv::Scalar::all(160));
  const cv::Vec3b warm = fuse(grey, grey, grey, {1.3f, 1.0f, 0.8f}).at<cv::Vec3b>(5, 5);
  EXPECT_GT(warm[2], warm[1] + 20);  // red raised
  EXPECT_LT(warm[0], warm[1] - 20);  // blue lowered
}

TEST_F(FuseExposures, ImagesAlreadyReadFuseAsTheirFiles) {
  cv::Mat scene(32, 48, CV_8UC3);
  cv::RNG(3).fill(scene, cv::RNG::UNIFORM, 30, 220);
  const std::array<cv::Mat, 3> shots = {scene * 0.5, scene, scene * 1.8};
  const std::array<std::string, 3> paths = {dir_.file("a.png"), dir_.file("b.png"),
                                            dir_.file("c.png")};
  for (int k = 0; k < 3; ++k) cv::imwrite(paths[k], shots[k]);
  testing::CapturedConsole console;
  cv::Mat fromFiles, given, mixed;
  fuseExposures(paths[0], paths[1], paths[2], fromFiles, 1.1f, 1.0f, 0.9f);
  fuseExposures({shots[0].clone(), shots[1].clone(), shots[2].clone()}, paths, given, 1.1f, 1.0f,
                0.9f);
  fuseExposures({cv::Mat(), shots[1].clone(), cv::Mat()}, paths, mixed, 1.1f, 1.0f, 0.9f);
  EXPECT_EQ(gap(given, fromFiles), 0.0);
  EXPECT_EQ(gap(mixed, fromFiles), 0.0);
  // A given image is held to the first one's size like a read one.
  cv::Mat out;
  EXPECT_THROW(
      fuseExposures({shots[0], shots[1].colRange(0, 47).clone(), cv::Mat()}, paths, out, 1, 1, 1),
      cv::Exception);
}

TEST_F(FuseExposures, UnreadableOrMismatchedShotsRaise) {
  const std::string good = dir_.file("good.png"), small = dir_.file("small.png");
  const std::string corrupt = dir_.file("corrupt.jpg");
  cv::imwrite(good, uniform(cv::Scalar::all(100)));
  cv::imwrite(small, cv::Mat(32, 47, CV_8UC3, cv::Scalar::all(100)));
  testing::writeTextFile(corrupt, "not an image");
  cv::Mat out(1, 1, CV_8UC1, cv::Scalar(7));
  // An empty first path is what every fusion of a two-exposure bracket receives.
  const std::vector<std::string> cases[] = {{"", good, good},
                                            {good, dir_.file("missing.png"), good},
                                            {good, good, corrupt},
                                            {good, good, small},
                                            {small, good, good}};
  for (const auto& paths : cases)
    EXPECT_THROW(fuseExposures(paths[0], paths[1], paths[2], out, 1, 1, 1), cv::Exception);
  EXPECT_EQ(out.type(), CV_8UC1);
}

}  // namespace
}  // namespace velmora
