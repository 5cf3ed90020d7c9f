#include "flow/median_blur.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "common/status.h"

namespace velmora {
namespace {

bool sameBits(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) return false;
  for (int y = 0; y < a.rows; ++y) {
    if (std::memcmp(a.ptr(y), b.ptr(y), a.cols * a.elemSize()) != 0) return false;
  }
  return true;
}

// Both builds of the filter: the baseline's and the widest unit's.
void expectAsCvMedianBlur(const cv::Mat& image) {
  cv::Mat expected;
  cv::medianBlur(image, expected, 5);
  for (bool widest : {false, true}) {
    cv::Mat filtered;
    medianBlur5x5(image, filtered, widest);
    EXPECT_TRUE(sameBits(filtered, expected)) << image.cols << " x " << image.rows << ", "
                                              << image.channels() << " channels, widest " << widest;
  }
}

// Every channel count, sizes smaller than the window and sizes across the row chunks (256
// floats), values from a few levels (many ties), 0 and 1 only (a wrong exchange shows at once on
// such inputs) and the full float range with infinities.
TEST(MedianBlur, GivesCvMedianBlursValuesAtEverySizeChannelCountAndTie) {
  cv::RNG rng(5);
  for (int channels = 1; channels <= 4; ++channels) {
    for (cv::Size size : {cv::Size(1, 1), cv::Size(2, 3), cv::Size(4, 1), cv::Size(5, 5),
                          cv::Size(13, 9), cv::Size(129, 7), cv::Size(300, 11), cv::Size(517, 6)}) {
      cv::Mat levels(size, CV_32FC(channels));
      rng.fill(levels, cv::RNG::UNIFORM, cv::Scalar::all(0), cv::Scalar::all(5));
      cv::Mat whole;
      levels.convertTo(whole, CV_32S);
      whole.convertTo(levels, CV_32F);
      expectAsCvMedianBlur(levels);
      cv::Mat binary;
      cv::threshold(levels, binary, 2.0, 1.0, cv::THRESH_BINARY);
      expectAsCvMedianBlur(binary);
      cv::Mat wide(size, CV_32FC(channels));
      rng.fill(wide, cv::RNG::UNIFORM, cv::Scalar::all(-1e30), cv::Scalar::all(1e30));
      wide.at<float>(0, 0) = std::numeric_limits<float>::infinity();
      wide.at<float>(size.height - 1, 0) = -std::numeric_limits<float>::infinity();
      expectAsCvMedianBlur(wide);
    }
  }
}

// A view inside a larger field, written into a buffer that already has the right size (as the
// flow refinement passes its working fields).
TEST(MedianBlur, ReadsViewsAndWritesIntoTheGivenBuffer) {
  cv::Mat field(40, 700, CV_32FC2);
  cv::RNG(9).fill(field, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(3));
  const cv::Mat view = field(cv::Rect(3, 2, 650, 31));
  cv::Mat storage(31, 650, CV_32FC2, cv::Scalar::all(7));
  cv::Mat filtered = storage;
  medianBlur5x5(view, filtered);
  EXPECT_EQ(filtered.data, storage.data);
  cv::Mat expected;
  cv::medianBlur(view, expected, 5);
  EXPECT_TRUE(sameBits(filtered, expected));
}

// Where +0 and -0 tie, the sign that comes out depends on the order of the exchanges; such
// fields (and fields with NaN) give cv::medianBlur's own result.
TEST(MedianBlur, GivesCvMedianBlursZeroSignsAndNans) {
  cv::Mat codes(60, 300, CV_32SC2);
  cv::RNG(3).fill(codes, cv::RNG::UNIFORM, cv::Scalar::all(0), cv::Scalar::all(4));
  const float values[4] = {0.0f, -0.0f, 1.0f, -1.0f};
  cv::Mat zeros(codes.size(), CV_32FC2);
  for (int y = 0; y < codes.rows; ++y) {
    for (int x = 0; x < codes.cols * 2; ++x) {
      zeros.ptr<float>(y)[x] = values[codes.ptr<int>(y)[x]];
    }
  }
  expectAsCvMedianBlur(zeros);
  cv::Mat nans(50, 280, CV_32FC1);
  cv::RNG(4).fill(nans, cv::RNG::UNIFORM, cv::Scalar::all(-2), cv::Scalar::all(2));
  for (int k = 0; k < 40; ++k) nans.at<float>(k, 7 * k) = std::numeric_limits<float>::quiet_NaN();
  expectAsCvMedianBlur(nans);
}

TEST(MedianBlur, RefusesOtherTypesAndFilteringInPlace) {
  cv::Mat bytes(8, 8, CV_8UC1, cv::Scalar(1)), out;
  EXPECT_THROW(medianBlur5x5(bytes, out), Failure);
  cv::Mat five(8, 8, CV_32FC(5));
  EXPECT_THROW(medianBlur5x5(five, out), Failure);
  EXPECT_THROW(medianBlur5x5(cv::Mat(), out), Failure);
  cv::Mat field(8, 8, CV_32FC2, cv::Scalar::all(1));
  cv::Mat same = field;
  EXPECT_THROW(medianBlur5x5(field, same), Failure);
}

}  // namespace
}  // namespace velmora
