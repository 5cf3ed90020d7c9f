#include "repair/edge_box.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace velmora {
namespace {

TEST(EdgeBoundingBox, BoundsTheStructureInPanoramaCoordinates) {
  cv::Mat panorama(200, 300, CV_8UC3, cv::Scalar(40, 40, 40));
  cv::rectangle(panorama, cv::Rect(150, 80, 30, 20), cv::Scalar(230, 230, 230), cv::FILLED);
  const FeatherBox box = edgeBoundingBox(panorama, cv::Rect(100, 50, 150, 100));
  // The edges of a filled rectangle hug its border within a pixel or two.
  EXPECT_NEAR(box.left, 150, 2);
  EXPECT_NEAR(box.right, 179, 2);
  EXPECT_NEAR(box.top, 80, 2);
  EXPECT_NEAR(box.bottom, 99, 2);
}

TEST(EdgeBoundingBox, WithoutEdgesKeepsTheStartValuesShifted) {
  const cv::Mat flat(200, 300, CV_8UC3, cv::Scalar(90, 90, 90));
  const FeatherBox box = edgeBoundingBox(flat, cv::Rect(10, 20, 50, 40));
  EXPECT_EQ(box.left, 20010);
  EXPECT_EQ(box.right, 9);
  EXPECT_EQ(box.top, 10020);
  EXPECT_EQ(box.bottom, 19);
}

}  // namespace
}  // namespace velmora
