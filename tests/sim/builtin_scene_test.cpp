// The built-in scene: deterministic, any size, and with the content the stitch tests rely on.
#include "sim/builtin_scene.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace velmora::sim {
namespace {

TEST(BuiltinScene, IsTheSameOnEveryCall) {
  const cv::Mat first = makeBuiltinScene(512, 256);
  EXPECT_EQ(first.type(), CV_8UC3);
  EXPECT_EQ(first.size(), cv::Size(512, 256));
  EXPECT_EQ(cv::norm(first, makeBuiltinScene(512, 256), cv::NORM_INF), 0.0);
}

TEST(BuiltinScene, ShowsTheSameLayoutAtEverySize) {
  // Blurred to remove the grain and the thin lines, a large scene scaled down matches a small one.
  cv::Mat large;
  cv::resize(makeBuiltinScene(1024, 512), large, cv::Size(256, 128), 0, 0, cv::INTER_AREA);
  cv::Mat small;
  cv::resize(makeBuiltinScene(512, 256), small, cv::Size(256, 128), 0, 0, cv::INTER_AREA);
  cv::GaussianBlur(large, large, cv::Size(), 2.0);
  cv::GaussianBlur(small, small, cv::Size(), 2.0);
  EXPECT_GT(cv::PSNR(large, small), 25.0);
}

TEST(BuiltinScene, HasSkyGroundEdgesAndMarkers) {
  const cv::Mat scene = makeBuiltinScene(720, 360);
  const cv::Scalar sky = cv::mean(scene.rowRange(10, 40));
  const cv::Scalar ground = cv::mean(scene.rowRange(300, 340));
  EXPECT_GT(sky[0], sky[2] + 60.0);  // blue
  EXPECT_LT(ground[0] + ground[1] + ground[2], sky[0] + sky[1] + sky[2]);

  // Structures make strong edges around the horizon, all the way round.
  cv::Mat grey;
  cv::cvtColor(scene, grey, cv::COLOR_BGR2GRAY);
  cv::Mat edges;
  cv::Canny(grey, edges, 80, 160);
  for (int sector = 0; sector < 6; ++sector) {
    const cv::Mat band = edges(cv::Rect(sector * 120, 110, 120, 80));
    EXPECT_GT(cv::countNonZero(band), 300) << "sector " << sector;
  }

  // A marker cross at longitude 45, latitude 30 (x = 90, y = 120): magenta, unlike the sky.
  const cv::Vec3b marker = scene.at<cv::Vec3b>(120, 90);
  EXPECT_GT(marker[2], 150);
  EXPECT_GT(marker[0], 150);
  EXPECT_LT(marker[1], 100);

  // Fine grain everywhere: neighbouring pixels of the plain sky differ.
  cv::Mat sky8 = grey(cv::Rect(300, 5, 100, 10));
  cv::Mat dx;
  cv::Sobel(sky8, dx, CV_32F, 1, 0);
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(dx, mean, deviation);
  EXPECT_GT(deviation[0], 5.0);
}

TEST(BuiltinScene, RejectsTinySizes) {
  EXPECT_THROW(makeBuiltinScene(15, 8), std::runtime_error);
  EXPECT_THROW(makeBuiltinScene(16, 7), std::runtime_error);
  EXPECT_NO_THROW(makeBuiltinScene(16, 8));
}

}  // namespace
}  // namespace velmora::sim
