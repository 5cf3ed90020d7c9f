// The parts of the colour step that need no script: the saturation measure and the profile it
// chooses, and the profile copy. (The black bands around the result are compared byte for byte
// in the colour step's export test.)
#include <gtest/gtest.h>

#include <cmath>

#include "common/black_bands.h"
#include "common/saturation.h"
#include "common/status.h"
#include "support/test_support.h"
#include "tools/file_copy.h"
#include "tools/isp_script.h"

namespace velmora {
namespace {

TEST(Saturation, SpreadOverMaximumSummedOverTheWholeImage) {
  // (200 - 50) / 200 per pixel for the last, whose single-precision sums may drift a little.
  const std::pair<cv::Scalar, float> uniforms[] = {
      {cv::Scalar::all(128), 0}, {cv::Scalar::all(255), 0}, {{0, 0, 255}, 1},
      {{0, 255, 0}, 1},          {{200, 0, 0}, 1},          {{50, 100, 200}, 0.75f}};
  for (const auto& [bgr, measure] : uniforms) {
    EXPECT_NEAR(measureSaturation(cv::Mat(32, 64, CV_8UC3, bgr)), measure,
                measure == 0.75f ? 0.01f : 0.0f)
        << bgr;
  }
  EXPECT_TRUE(std::isnan(measureSaturation(cv::Mat(32, 64, CV_8UC3, cv::Scalar::all(0)))));
  // Left half grey, right half pure blue: (300 - 100) / 300 at any size.
  for (const cv::Size size : {cv::Size(8, 2), cv::Size(640, 300), cv::Size(4096, 2048)}) {
    cv::Mat image(size, CV_8UC3, cv::Scalar::all(100));
    image.colRange(size.width / 2, size.width).setTo(cv::Scalar(200, 0, 0));
    EXPECT_NEAR(measureSaturation(image), 2.0f / 3.0f, 0.01f) << size;
  }
  EXPECT_THROW(measureSaturation(cv::Mat()), Failure);
  EXPECT_THROW(measureSaturation(cv::Mat(8, 8, CV_8UC1, cv::Scalar(9))), Failure);
}

TEST(Saturation, OnlyAMeasureAboveOneHalfTakesTheHighProfile) {
  for (float low : {0.0f, 0.5f, std::nanf("")})
    EXPECT_STREQ(ispProfileFor(low), "./asset/satuLow.pp3");
  for (float high : {std::nextafter(0.5f, 1.0f), 1.0f})
    EXPECT_STREQ(ispProfileFor(high), "./asset/satuHigh.pp3");
}

TEST(FileCopy, SaysWhenTheCopyCannotBeCreated) {
  // (A copied profile and a missing one are the colour step's export test.)
  testing::TempDir dir;
  testing::writeTextFile(dir.file("profile"), "profile\n");
  testing::CapturedConsole console;
  EXPECT_EQ(copyFile(dir.file("profile"), dir.file("no-such-folder/new")), 0);
  EXPECT_EQ(console.out(), "Error 2: Fail to create the new file.\n");
}

}  // namespace
}  // namespace velmora
