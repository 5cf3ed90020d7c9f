#include "common/quarter_turn.h"

#include <gtest/gtest.h>

#include "common/buffer_pool.h"
#include "common/status.h"

namespace velmora {
namespace {

TEST(QuarterTurn, TurnsAsCvRotateForEveryPixelSizeAndEdgeTile) {
  cv::RNG rng(3);
  for (int type : {CV_8UC1, CV_8UC3, CV_8UC4, CV_16UC3, CV_32FC2, CV_32FC3, CV_32FC4}) {
    for (cv::Size size : {cv::Size(1, 1), cv::Size(130, 67), cv::Size(64, 200)}) {
      cv::Mat image(size, type);
      rng.fill(image, cv::RNG::UNIFORM, 0, 200);
      cv::Mat expected, turned = pooledMat();
      cv::rotate(image, expected, cv::ROTATE_90_COUNTERCLOCKWISE);
      turnQuarterCounterClockwise(image.colRange(0, size.width), turned);
      ASSERT_EQ(turned.size(), expected.size());
      EXPECT_EQ(cv::norm(turned, expected, cv::NORM_INF), 0.0) << size << " type " << type;
    }
  }
  // A view into a larger image reads its own pixels only.
  cv::Mat wide(40, 90, CV_8UC3);
  rng.fill(wide, cv::RNG::UNIFORM, 0, 256);
  cv::Mat expected, turned;
  cv::rotate(wide(cv::Rect(10, 5, 50, 30)), expected, cv::ROTATE_90_COUNTERCLOCKWISE);
  turnQuarterCounterClockwise(wide(cv::Rect(10, 5, 50, 30)), turned);
  EXPECT_EQ(cv::norm(turned, expected, cv::NORM_INF), 0.0);
  EXPECT_THROW(turnQuarterCounterClockwise(wide, wide), Failure);
}

}  // namespace
}  // namespace velmora
