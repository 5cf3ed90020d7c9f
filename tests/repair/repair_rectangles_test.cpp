#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <tuple>

#include "repair/edge_box.h"
#include "repair/panorama_repair.h"
#include "repair/panorama_sector.h"
#include "support/test_support.h"

namespace velmora {
namespace {

using testing::CapturedConsole;

constexpr int kWidth = 720;  // two columns per degree
constexpr int kHeight = 300;
constexpr int kBand = 36;

// Six projected shots, each a flat colour of its own with its head position written into the
// alpha-valid image, so that where a repair took its pixels from is plain to see.
std::vector<cv::Mat> colouredRing() {
  std::vector<cv::Mat> ring;
  for (int p = 0; p < 6; ++p) {
    cv::Mat image(kHeight, kWidth, CV_8UC4, cv::Scalar(30 * p, 200 - 30 * p, 100, 255));
    // A marker at the image's own centre column, which the sector image must move to p x W / 6.
    image.col(kWidth / 2).setTo(cv::Scalar(255, 255, 255, 255));
    ring.push_back(image);
  }
  return ring;
}

// A grey panorama with a dark block: the structure a repair rectangle finds.
cv::Mat panoramaWithBlock(const cv::Rect& block) {
  cv::Mat panorama(kHeight, kWidth, CV_8UC3, cv::Scalar(128, 128, 128));
  cv::rectangle(panorama, block, cv::Scalar(20, 20, 20), cv::FILLED);
  return panorama;
}

TEST(SectorImage, PutsTheHeadPositionsAxisWhereThePanoramaShowsIt) {
  const auto ring = colouredRing();
  for (int sector = 0; sector < 6; ++sector) {
    const cv::Mat image = sectorImage(ring, sector);
    const int position = headPositionOfSector(sector);
    EXPECT_EQ(image.at<cv::Vec4b>(10, position * kWidth / 6), cv::Vec4b(255, 255, 255, 255))
        << "sector " << sector;
    EXPECT_EQ(image.at<cv::Vec4b>(10, (position * kWidth / 6 + 5) % kWidth)[0], 30 * position);
  }
}

TEST(RepairRectangles, PastesTheSectorShotOverTheStructure) {
  // Sector 3 covers 30 to 90 degrees (columns 60 to 180); its shot is head position 1.
  const cv::Rect block(100, 120, 40, 30);
  cv::Mat panorama = panoramaWithBlock(block);
  CapturedConsole console;
  repairRectangles(panorama, colouredRing(), {cv::Rect(90, 110 + kBand, 60, 50)}, kBand);
  EXPECT_EQ(console.out(), "");
  // Inside the edge box the panorama now shows head position 1's colour.
  EXPECT_EQ(panorama.at<cv::Vec3b>(135, 115), cv::Vec3b(30, 170, 100));
  EXPECT_EQ(panorama.at<cv::Vec3b>(135, 120), cv::Vec3b(255, 255, 255));  // its axis marker
  // Far from the box it is untouched; within the 50-pixel feather it is a mix.
  EXPECT_EQ(panorama.at<cv::Vec3b>(20, 400), cv::Vec3b(128, 128, 128));
  const cv::Vec3b mixed = panorama.at<cv::Vec3b>(135, 165);
  EXPECT_NE(mixed, cv::Vec3b(128, 128, 128));
  EXPECT_NE(mixed, cv::Vec3b(30, 170, 100));
}

TEST(RepairRectangles, RefusesTheEdgeSectorAndStructuresBeyondTheSpan) {
  cv::Mat panorama = panoramaWithBlock(cv::Rect(10, 120, 20, 30));
  cv::rectangle(panorama, cv::Rect(200, 120, 130, 30), cv::Scalar(20, 20, 20), cv::FILLED);
  const cv::Mat before = panorama.clone();
  CapturedConsole console;
  // The first lies in sector 2; the second is centred in sector 4 (90 to 150 degrees) but
  // reaches past its span of 80 to 160 degrees once widened by 50 pixels.
  repairRectangles(panorama, colouredRing(),
                   {cv::Rect(0, 110 + kBand, 40, 50), cv::Rect(190, 110 + kBand, 150, 50)}, kBand);
  EXPECT_EQ(console.outLines(),
            (std::vector<std::string>{"0th ROI over cur sphere.", "1th ROI over cur sphere."}));
  EXPECT_EQ(cv::norm(panorama, before, cv::NORM_INF), 0.0);
}

TEST(RepairRectangles, LaterRectanglesSeeEarlierRepairs) {
  // The same rectangle twice: the second time its edge box must come from the repaired
  // panorama, whose block the first paste has replaced.
  const cv::Rect block(100, 120, 40, 30);
  const cv::Mat original = panoramaWithBlock(block);
  const auto ring = colouredRing();
  const cv::Rect host(95, 115 + kBand, 50, 40);
  const cv::Rect inside(95, 115, 50, 40);
  CapturedConsole console;
  cv::Mat once = original.clone();
  repairRectangles(once, ring, {host}, kBand);
  cv::Mat twice = original.clone();
  repairRectangles(twice, ring, {host, host}, kBand);

  const FeatherBox stale = edgeBoundingBox(original, inside);
  const FeatherBox fresh = edgeBoundingBox(once, inside);
  ASSERT_NE(std::tie(stale.left, stale.top, stale.right, stale.bottom),
            std::tie(fresh.left, fresh.top, fresh.right, fresh.bottom));
  cv::Mat source;
  cv::cvtColor(sectorImage(ring, 3), source, cv::COLOR_BGRA2BGR);
  cv::Mat expected = once.clone();
  blendFeathered(expected, source, fresh, 50, cv::Rect(0, 0, kWidth, kHeight));
  EXPECT_EQ(cv::norm(twice, expected, cv::NORM_INF), 0.0);
  EXPECT_EQ(console.out(), "");
}

TEST(RepairRectangles, RectanglesOutsideThePanoramaAreSkippedWithALine) {
  cv::Mat panorama = panoramaWithBlock(cv::Rect(100, 120, 40, 30));
  const cv::Mat before = panorama.clone();
  CapturedConsole console;
  repairRectangles(panorama, colouredRing(),
                   {cv::Rect(-5, 100, 20, 20), cv::Rect(100, 10, 20, 20),
                    cv::Rect(INT32_MAX - 3, INT32_MAX - 3, INT32_MAX, INT32_MAX),
                    cv::Rect(100, 100, 0, 10), cv::Rect(700, 100, 40, 10)},
                   kBand);
  EXPECT_EQ(console.errLines().size(), 5u);
  EXPECT_EQ(console.errLines()[0], "0th ROI outside the panorama.");
  EXPECT_EQ(cv::norm(panorama, before, cv::NORM_INF), 0.0);
}

}  // namespace
}  // namespace velmora
