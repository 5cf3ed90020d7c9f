#include "fusion/exposure_fusion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgcodecs.hpp>

#include "support/test_support.h"

namespace velmora {
namespace {

cv::Mat lumaPlane(std::initializer_list<float> values) {
  cv::Mat plane(1, static_cast<int>(values.size()), CV_32F);
  int x = 0;
  for (float value : values) plane.at<float>(0, x++) = value;
  return plane;
}

TEST(WellExposedness, GaussianAroundMidLumaAndZeroWhenOverExposed) {
  const float justAbove = std::nextafter(0.98f, 1.0f);
  const cv::Mat weight = wellExposedness(lumaPlane({0.6f, 0.4f, 0.0f, 0.98f, justAbove, 1.0f}));
  ASSERT_EQ(weight.type(), CV_32F);
  EXPECT_NEAR(weight.at<float>(0, 0), 1.0f, 1e-6f);
  EXPECT_NEAR(weight.at<float>(0, 1), std::exp(-0.5f), 1e-5f);
  EXPECT_NEAR(weight.at<float>(0, 2), std::exp(-4.5f), 1e-5f);
  // Exactly 0.98 keeps its Gaussian weight; only values above are cut.
  EXPECT_NEAR(weight.at<float>(0, 3), std::exp(-12.5f * 0.38f * 0.38f), 1e-5f);
  EXPECT_EQ(weight.at<float>(0, 4), 0.0f);
  EXPECT_EQ(weight.at<float>(0, 5), 0.0f);
}

TEST(WellExposedness, ReadsLumaFromChannelZero) {
  cv::Mat yuv(1, 1, CV_32FC3, cv::Scalar(0.6, 0.9, -0.9));
  EXPECT_NEAR(wellExposedness(yuv).at<float>(0, 0), 1.0f, 1e-6f);
  EXPECT_THROW(wellExposedness(cv::Mat(1, 1, CV_8UC3)), cv::Exception);
}

std::vector<cv::Mat> onesWeights(cv::Size size) {
  return {cv::Mat::ones(size, CV_32F), cv::Mat::ones(size, CV_32F), cv::Mat::ones(size, CV_32F)};
}

TEST(ExposureWeights, FixedPreferenceFavoursLaterExposures) {
  // Pixel 0: all mid grey. Pixel 1: the third exposure over-exposed. Pixel 2: all over-exposed.
  const std::vector<cv::Mat> lumas = {lumaPlane({0.6f, 0.6f, 0.99f}),
                                      lumaPlane({0.6f, 0.6f, 0.99f}),
                                      lumaPlane({0.6f, 0.99f, 1.0f})};
  std::vector<cv::Mat> weights = onesWeights(lumas[0].size());
  computeExposureWeights(lumas, weights);
  const float expected[3][3] = {
      {3.0f / 22, 7.0f / 22, 12.0f / 22}, {0.3f, 0.7f, 0.0f}, {1.0f, 0.0f, 0.0f}};
  for (int x = 0; x < 3; ++x) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(weights[i].at<float>(0, x), expected[x][i], 1e-6f)
          << "pixel " << x << " exposure " << i;
    }
  }
}

TEST(ExposureWeights, MapsThatShareABufferStayApart) {
  const cv::Mat luma = lumaPlane({0.6f});
  const cv::Mat one = cv::Mat::ones(1, 1, CV_32F);
  std::vector<cv::Mat> weights = {one, one, one};
  computeExposureWeights({luma, luma, luma}, weights);
  EXPECT_NEAR(weights[0].at<float>(0, 0), 3.0f / 22, 1e-6f);
  EXPECT_NEAR(weights[2].at<float>(0, 0), 12.0f / 22, 1e-6f);
}

// Fuses three in-memory exposures through files, with unit gains.
class FuseExposures : public ::testing::Test {
 protected:
  cv::Mat fuse(const cv::Mat& first, const cv::Mat& second, const cv::Mat& third) {
    const std::string paths[] = {dir_.file("1.png"), dir_.file("2.png"), dir_.file("3.png")};
    cv::imwrite(paths[0], first);
    cv::imwrite(paths[1], second);
    cv::imwrite(paths[2], third);
    cv::Mat out;
    testing::CapturedConsole console;
    EXPECT_TRUE(fuseExposures(paths[0], paths[1], paths[2], out, 1.0f, 1.0f, 1.0f));
    EXPECT_EQ(out.type(), CV_8UC3);
    EXPECT_EQ(out.size(), first.size());
    return out;
  }

  static cv::Mat uniform(cv::Scalar bgr) { return cv::Mat(kSize, CV_8UC3, bgr); }

  static constexpr int kWidth = 48;
  static constexpr int kHeight = 32;
  inline static const cv::Size kSize{kWidth, kHeight};
  testing::TempDir dir_;
};

double largestDifference(const cv::Mat& a, const cv::Mat& b) {
  return cv::norm(a, b, cv::NORM_INF);
}

TEST_F(FuseExposures, OverExposedEverywhereTakesTheFirstShot) {
  // Near-white shots (luma above 0.98) in three different tints; pure white pixels keep every
  // channel maximum near 1 so that the stretch leaves the tints visible.
  auto tinted = [](cv::Scalar tint) {
    cv::Mat image = uniform(cv::Scalar::all(255));
    image(cv::Rect(8, 8, 24, 16)).setTo(tint);
    return image;
  };
  const cv::Mat first = tinted({242, 250, 255});
  const cv::Mat second = tinted({255, 252, 246});
  const cv::Mat third = tinted({250, 255, 250});
  const cv::Mat fused = fuse(first, second, third);
  EXPECT_EQ(largestDifference(fused, fuse(first, first, first)), 0.0);
  EXPECT_LE(largestDifference(fused, first), 2.0);
  EXPECT_GE(largestDifference(fuse(second, first, third), first), 8.0);
}

TEST_F(FuseExposures, StretchOnlyWhenEveryChannelMaximumExceedsNinetyPercent) {
  // Three identical bright shots fuse to themselves, apart from the stretch.
  auto shot = [](double brightestBlue) {
    cv::Mat image = uniform({120, 200, 200});
    image(cv::Rect(0, 0, 8, 8)).setTo(cv::Scalar(brightestBlue, 255, 255));
    return image;
  };
  const cv::Mat below = shot(225);  // blue peaks at 0.88: no stretch
  EXPECT_LE(largestDifference(fuse(below, below, below), below), 2.0);

  const cv::Mat above = shot(240);  // every channel above 0.9: stretched by blue's maximum
  const cv::Mat stretched = fuse(above, above, above);
  const cv::Vec3b body = stretched.at<cv::Vec3b>(20, 30);
  EXPECT_NEAR(body[0], 120 * 255.0 / 240, 2.0);
  EXPECT_NEAR(body[1], 200 * 255.0 / 240, 2.0);
  EXPECT_EQ(stretched.at<cv::Vec3b>(2, 2), cv::Vec3b(255, 255, 255));
}

TEST_F(FuseExposures, ShadowLiftOnlyForTheFirstShot) {
  // A dark shot beside two over-exposed ones gets all the weight; only in the first slot is it
  // lifted, by (150 - 60) / 150 * 0.8 + 1 = 1.48.
  const cv::Mat dark = uniform(cv::Scalar::all(60));
  const cv::Mat white = uniform(cv::Scalar::all(255));
  const cv::Mat lifted = fuse(dark, white, white);
  EXPECT_NEAR(lifted.at<cv::Vec3b>(10, 10)[1], 89, 1.0);
  EXPECT_LE(largestDifference(fuse(white, dark, white), dark), 1.0);
  EXPECT_LE(largestDifference(fuse(white, white, dark), dark), 1.0);
  // Shots whose brightest channel reaches 150 are left alone.
  const cv::Mat bright = uniform({100, 150, 120});
  EXPECT_LE(largestDifference(fuse(bright, white, white), bright), 1.0);
}

TEST_F(FuseExposures, BlendsTowardsTheBetterExposedShot) {
  // A textured scene at half, full and double exposure: the fused image keeps the texture and
  // sits between the darkest and the brightest shot.
  cv::Mat scene(kSize, CV_8UC3);
  cv::RNG(7).fill(scene, cv::RNG::UNIFORM, 40, 200);
  const cv::Mat fused = fuse(scene * 0.5, scene, scene * 2.0);
  const double fusedMean = cv::mean(fused)[1];
  EXPECT_GT(fusedMean, cv::mean(scene * 0.5)[1]);
  EXPECT_LT(fusedMean, cv::mean(scene * 2.0)[1]);
  cv::Mat grey;
  cv::extractChannel(fused, grey, 1);
  cv::Scalar mean, deviation;
  cv::meanStdDev(grey, mean, deviation);
  EXPECT_GT(deviation[0], 20.0);
}

TEST_F(FuseExposures, UnreadableOrMismatchedShotsRaise) {
  const std::string good = dir_.file("good.png");
  const std::string small = dir_.file("small.png");
  cv::imwrite(good, uniform(cv::Scalar::all(100)));
  cv::imwrite(small, cv::Mat(kHeight, kWidth - 1, CV_8UC3, cv::Scalar::all(100)));
  cv::Mat out(1, 1, CV_8UC1, cv::Scalar(7));
  // An empty first path is what every fusion of a two-exposure bracket receives.
  EXPECT_THROW(fuseExposures("", good, good, out, 1, 1, 1), cv::Exception);
  EXPECT_THROW(fuseExposures(good, dir_.file("missing.png"), good, out, 1, 1, 1), cv::Exception);
  testing::writeTextFile(dir_.file("corrupt.jpg"), "not an image");
  EXPECT_THROW(fuseExposures(good, good, dir_.file("corrupt.jpg"), out, 1, 1, 1), cv::Exception);
  EXPECT_THROW(fuseExposures(good, good, small, out, 1, 1, 1), cv::Exception);
  EXPECT_THROW(fuseExposures(small, good, good, out, 1, 1, 1), cv::Exception);
  EXPECT_EQ(out.type(), CV_8UC1);
}

TEST_F(FuseExposures, GainsEndTheFusion) {
  const cv::Mat grey = uniform(cv::Scalar::all(160));
  cv::imwrite(dir_.file("g.png"), grey);
  cv::Mat warm;
  testing::CapturedConsole console;
  const std::string path = dir_.file("g.png");
  ASSERT_TRUE(fuseExposures(path, path, path, warm, 1.3f, 1.0f, 0.8f));
  const cv::Vec3b pixel = warm.at<cv::Vec3b>(5, 5);
  EXPECT_GT(pixel[2], pixel[1] + 20);  // red raised
  EXPECT_LT(pixel[0], pixel[1] - 20);  // blue lowered
}

}  // namespace
}  // namespace velmora
