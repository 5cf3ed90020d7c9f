#include "common/feathered_rectangle.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

TEST(FeatherWeight, ZeroInsideLinearInTheBandsRoundAtTheCornersAndOneBeyond) {
  const FeatherBox box{100, 200, 300, 400};
  // The box of a rectangle without edges: left and top far beyond, right and bottom before it.
  const FeatherBox empty{20000 + 10, 10000 + 20, 10 - 1, 20 - 1};
  const struct {
    FeatherBox box;
    int x, y;
    float weight;
  } cases[] = {
      {box, 150, 300, 0.0f}, {box, 150, 200, 0.0f},   // inside; the edges belong to bands
      {box, 150, 190, 0.2f}, {box, 150, 151, 0.98f},  // above the top edge
      {box, 150, 150, 1.0f}, {box, 150, 425, 0.5f},   // beyond it; below the bottom
      {box, 80, 300, 0.4f},  {box, 349, 300, 0.98f},  // left and right
      {box, 350, 300, 1.0f}, {box, 70, 160, 1.0f},    // beyond; corner 30-40-50, capped
      {box, 312, 409, 0.3f}, {box, 100, 200, 0.0f},   // corner 9-12-15; the corner itself
      {empty, 12, 23, 0.1f}, {empty, 9, 19, 0.0f},    // only a quarter disc is left
      {empty, 8, 23, 1.0f},  {empty, 60, 30, 1.0f},
  };
  for (const auto& c : cases)
    EXPECT_FLOAT_EQ(featherWeight(c.box, 50, c.x, c.y), c.weight) << c.x << "," << c.y;
  EXPECT_EQ(featherRegion(empty, 50, cv::Size(200, 200)).br(), cv::Point(200, 200));
}

TEST(BlendFeathered, MixesInsideItsLimitOnly) {
  cv::Mat target(60, 80, CV_8UC3, cv::Scalar(200, 100, 50));
  blendFeathered(target, cv::Mat(60, 80, CV_8UC3, cv::Scalar(0, 0, 250)),
                 FeatherBox{30, 20, 50, 40}, 10, cv::Rect(0, 0, 40, 60));
  EXPECT_EQ(target.at<cv::Vec3b>(30, 35), cv::Vec3b(0, 0, 250));     // inside the box
  EXPECT_EQ(target.at<cv::Vec3b>(5, 5), cv::Vec3b(200, 100, 50));    // beyond the feather
  EXPECT_EQ(target.at<cv::Vec3b>(15, 35), cv::Vec3b(100, 50, 150));  // w = 0.5, truncated
  EXPECT_EQ(target.at<cv::Vec3b>(30, 45), cv::Vec3b(200, 100, 50));  // beyond the limit
}

}  // namespace
}  // namespace velmora
