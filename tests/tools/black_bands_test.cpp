#include "tools/black_bands.h"

#include <gtest/gtest.h>

#include "api/status.h"

namespace velmora {
namespace {

TEST(BlackBands, BandIsTwelvePercentOfTheHeightTruncated) {
  EXPECT_EQ(blackBandRows(100), 12);
  EXPECT_EQ(blackBandRows(32), 3);
  EXPECT_EQ(blackBandRows(8), 0);
  EXPECT_EQ(blackBandRows(1024), 122);
  EXPECT_EQ(blackBandRows(0), 0);
}

TEST(BlackBands, ImageSitsBetweenTwoBlackBands) {
  const cv::Mat image(5, 4, CV_8UC3, cv::Scalar(10, 20, 30));
  const cv::Mat framed = addBlackBands(image, 2, 4);
  ASSERT_EQ(framed.size(), cv::Size(4, 9));
  EXPECT_EQ(cv::countNonZero(framed.rowRange(0, 2).reshape(1)), 0);
  EXPECT_EQ(cv::countNonZero(framed.rowRange(7, 9).reshape(1)), 0);
  EXPECT_EQ(cv::norm(framed.rowRange(2, 7), image, cv::NORM_INF), 0.0);
  EXPECT_EQ(addBlackBands(image, 0, 4).rows, 5);
}

TEST(BlackBands, ImageOfAnotherWidthOrTypeIsRefused) {
  EXPECT_THROW(addBlackBands(cv::Mat(5, 4, CV_8UC3), 2, 6), Failure);
  EXPECT_THROW(addBlackBands(cv::Mat(5, 4, CV_8UC1), 2, 4), Failure);
  EXPECT_THROW(addBlackBands(cv::Mat(), 2, 0), Failure);
}

}  // namespace
}  // namespace velmora
