#include "common/feathered_rectangle.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

const FeatherBox kBox{100, 200, 300, 400};

TEST(FeatherWeight, ZeroInsideLinearBesideTheEdgesAndOneBeyond) {
  EXPECT_EQ(featherWeight(kBox, 50, 150, 300), 0.0f);
  // The box's own edges belong to the bands and weigh 0 there.
  EXPECT_EQ(featherWeight(kBox, 50, 150, 200), 0.0f);
  EXPECT_FLOAT_EQ(featherWeight(kBox, 50, 150, 190), 10.0f / 50);
  EXPECT_FLOAT_EQ(featherWeight(kBox, 50, 150, 151), 49.0f / 50);
  EXPECT_EQ(featherWeight(kBox, 50, 150, 150), 1.0f);
  EXPECT_FLOAT_EQ(featherWeight(kBox, 50, 150, 425), 25.0f / 50);
  EXPECT_FLOAT_EQ(featherWeight(kBox, 50, 80, 300), 20.0f / 50);
  EXPECT_FLOAT_EQ(featherWeight(kBox, 50, 349, 300), 49.0f / 50);
  EXPECT_EQ(featherWeight(kBox, 50, 350, 300), 1.0f);
}

TEST(FeatherWeight, CornersFadeWithTheDistanceToTheNearestCorner) {
  EXPECT_FLOAT_EQ(featherWeight(kBox, 50, 70, 160), 50.0f / 50);   // 30-40-50 triangle, capped
  EXPECT_FLOAT_EQ(featherWeight(kBox, 50, 312, 409), 15.0f / 50);  // 9-12-15 triangle
  EXPECT_EQ(featherWeight(kBox, 50, 100, 200), 0.0f);
}

TEST(FeatherWeight, AnEmptyEdgeBoxLeavesOnlyAQuarterDisc) {
  // The box of a rectangle without edges: left and top far beyond, right and bottom before it.
  const FeatherBox empty{20000 + 10, 10000 + 20, 10 - 1, 20 - 1};
  EXPECT_FLOAT_EQ(featherWeight(empty, 50, 12, 23), 5.0f / 50);
  EXPECT_EQ(featherWeight(empty, 50, 9, 19), 0.0f);
  EXPECT_EQ(featherWeight(empty, 50, 8, 23), 1.0f);
  EXPECT_EQ(featherWeight(empty, 50, 60, 30), 1.0f);
  EXPECT_EQ(featherRegion(empty, 50, cv::Size(200, 200)).br(), cv::Point(200, 200));
}

TEST(BlendFeathered, TakesTheSourceInsideAndKeepsTheTargetOutside) {
  cv::Mat target(60, 80, CV_8UC3, cv::Scalar(200, 100, 50));
  const cv::Mat source(60, 80, CV_8UC3, cv::Scalar(0, 0, 250));
  const FeatherBox box{30, 20, 50, 40};
  blendFeathered(target, source, box, 10, cv::Rect(0, 0, 80, 60));
  EXPECT_EQ(target.at<cv::Vec3b>(30, 40), cv::Vec3b(0, 0, 250));
  EXPECT_EQ(target.at<cv::Vec3b>(5, 5), cv::Vec3b(200, 100, 50));
  // Five pixels above the box: w = 0.5, so trunc(0.5 x source + 0.5 x target).
  EXPECT_EQ(target.at<cv::Vec3b>(15, 40), cv::Vec3b(100, 50, 150));
}

TEST(BlendFeathered, StaysInsideItsLimitAndSurvivesHugeBoxes) {
  cv::Mat target(60, 80, CV_8UC3, cv::Scalar(200, 100, 50));
  const cv::Mat source(60, 80, CV_8UC3, cv::Scalar(0, 0, 0));
  blendFeathered(target, source, FeatherBox{0, 0, 79, 59}, 10, cv::Rect(0, 0, 40, 60));
  EXPECT_EQ(target.at<cv::Vec3b>(30, 20), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(target.at<cv::Vec3b>(30, 60), cv::Vec3b(200, 100, 50));
  blendFeathered(target, source, FeatherBox{INT32_MIN + 5, -2000000000, INT32_MAX - 5, 2000000000},
                 50, cv::Rect(0, 0, 80, 60));
  EXPECT_EQ(cv::countNonZero(target.reshape(1)), 0);
}

}  // namespace
}  // namespace velmora
