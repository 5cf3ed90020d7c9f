// The repair's steps on synthetic images: the sectors of the panorama, the edge box of a
// structure, the sector image and the paste of the sector's shot over the structure.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <tuple>

#include "repair/edge_box.h"
#include "repair/panorama_repair.h"
#include "repair/panorama_sector.h"
#include "support/test_support.h"

namespace velmora {
namespace {

TEST(SectorOfColumn, FollowsTheSixtyDegreeSectorsAroundThePanorama) {
  constexpr int kWidth = 3600;  // ten columns per degree
  // With 1000 columns, 30 degrees is column 83.33, a fractional bound.
  const struct {
    int column, width, sector;
  } cases[] = {{-1, kWidth, -1},   {0, kWidth, 2},    {299, kWidth, 2},  {300, kWidth, 3},
               {899, kWidth, 3},   {900, kWidth, 4},  {1500, kWidth, 5}, {2100, kWidth, 0},
               {2700, kWidth, 1},  {3299, kWidth, 1}, {3300, kWidth, 2}, {3599, kWidth, 2},
               {3600, kWidth, -1}, {83, 1000, 2},     {84, 1000, 3}};
  for (const auto& c : cases)
    EXPECT_EQ(sectorOfColumn(c.column, c.width), c.sector) << c.column << " of " << c.width;
}

TEST(SectorAccepts, OnlyStructuresStrictlyInsideTheSpanOfAnInnerSector) {
  constexpr int kWidth = 3600;
  // Sector 3 spans 20 to 100 degrees: columns 200 to 1000.0001 (0.2777778 is a hair above 5/18);
  // sector 0 spans 200 to 280 degrees, sector 5 140 to 220. Sector 2 and -1 never accept.
  const struct {
    int sector, left, right;
    bool accepts;
  } cases[] = {{3, 201, 1000, true},  {3, 200, 900, false},   {3, 300, 1001, false},
               {0, 2100, 2700, true}, {5, 2100, 2700, false}, {5, 1500, 2100, true},
               {2, 10, 20, false},    {2, 3400, 3500, false}, {-1, 1000, 1100, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(sectorAccepts(kWidth, c.sector, c.left, c.right), c.accepts)
        << "sector " << c.sector << ": " << c.left << ".." << c.right;
  }
}

using testing::CapturedConsole;

constexpr int kWidth = 720;  // two columns per degree
constexpr int kHeight = 300;
constexpr int kBand = 36;
const cv::Vec3b kGrey(128, 128, 128);

// Six projected shots, each a flat colour of its own with a white marker at its centre column,
// which the sector image must move to p x W / 6: where a repair took its pixels from is plain.
std::vector<cv::Mat> colouredRing() {
  std::vector<cv::Mat> ring;
  for (int p = 0; p < 6; ++p) {
    ring.emplace_back(kHeight, kWidth, CV_8UC4, cv::Scalar(30 * p, 200 - 30 * p, 100, 255));
    ring.back().col(kWidth / 2).setTo(cv::Scalar::all(255));
  }
  return ring;
}

// A grey panorama with dark blocks: the structures repair rectangles find.
cv::Mat panoramaWithBlocks(std::initializer_list<cv::Rect> blocks) {
  cv::Mat panorama(kHeight, kWidth, CV_8UC3, cv::Scalar::all(128));
  for (const auto& block : blocks) cv::rectangle(panorama, block, cv::Scalar::all(20), cv::FILLED);
  return panorama;
}

std::tuple<int, int, int, int> corners(const FeatherBox& box) {
  return {box.left, box.top, box.right, box.bottom};
}

TEST(EdgeBoundingBox, HugsTheStructureOrKeepsTheStartValuesShiftedWithoutEdges) {
  const auto [left, top, right, bottom] =
      corners(edgeBoundingBox(panoramaWithBlocks({{150, 80, 30, 20}}), {100, 50, 150, 100}));
  EXPECT_LE(cv::norm(cv::Vec4d(left - 150, top - 80, right - 179, bottom - 99), cv::NORM_INF), 2);
  EXPECT_EQ(corners(edgeBoundingBox(panoramaWithBlocks({}), cv::Rect(10, 20, 50, 40))),
            std::make_tuple(20010, 10020, 9, 19));
}

TEST(SectorImage, PutsTheHeadPositionsAxisAtTheSectorsCentre) {
  const auto ring = colouredRing();
  for (int sector = 0; sector < 6; ++sector) {
    // Sector s is centred on (60 s + 240) mod 360 degrees, the axis of head position (s + 4) mod 6.
    const int position = (sector + 4) % 6, axis = position * kWidth / 6;
    const cv::Mat image = sectorImage(ring, sector);
    EXPECT_EQ(headPositionOfSector(sector), position);
    EXPECT_EQ(image.at<cv::Vec4b>(10, axis), cv::Vec4b::all(255)) << sector;
    EXPECT_EQ(image.at<cv::Vec4b>(10, (axis + 5) % kWidth)[0], 30 * position);
  }
}

TEST(RepairRectangles, PastesTheSectorShotOverTheStructureAndLaterOnesSeeEarlierRepairs) {
  // Sector 3 covers 30 to 90 degrees (columns 60 to 180); its shot is head position 1.
  const cv::Mat original = panoramaWithBlocks({{100, 120, 40, 30}});
  const auto ring = colouredRing();
  const cv::Rect host(95, 115 + kBand, 50, 40);
  CapturedConsole console;
  cv::Mat once = original.clone(), twice = original.clone();
  repairRectangles(once, ring, {host}, kBand);
  EXPECT_EQ(console.out(), "");
  EXPECT_EQ(once.at<cv::Vec3b>(135, 115), cv::Vec3b(30, 170, 100));
  EXPECT_EQ(once.at<cv::Vec3b>(135, 120), cv::Vec3b::all(255));  // its axis marker
  // Far from the edge box it is untouched; within the 50-pixel feather it is a mix.
  EXPECT_EQ(once.at<cv::Vec3b>(20, 400), kGrey);
  const cv::Vec3b mixed = once.at<cv::Vec3b>(135, 165);
  EXPECT_TRUE(mixed != kGrey && mixed != cv::Vec3b(30, 170, 100)) << mixed;

  // The same rectangle twice equals it once on the once-repaired panorama, whose block the first
  // paste replaced: its edge box differs from the original's, so a stale box would show.
  repairRectangles(twice, ring, {host, host}, kBand);
  ASSERT_NE(corners(edgeBoundingBox(original, {95, 115, 50, 40})),
            corners(edgeBoundingBox(once, {95, 115, 50, 40})));
  repairRectangles(once, ring, {host}, kBand);
  EXPECT_EQ(cv::norm(twice, once, cv::NORM_INF), 0.0);
}

TEST(RepairRectangles, RefusesTheEdgeSectorAndStructuresBeyondTheSpan) {
  // The first lies in sector 2; the second is centred in sector 4 (90 to 150 degrees) but
  // reaches past its span of 80 to 160 degrees once widened by 50 pixels.
  cv::Mat panorama = panoramaWithBlocks({{10, 120, 20, 30}, {200, 120, 130, 30}});
  const cv::Mat before = panorama.clone();
  CapturedConsole console;
  repairRectangles(panorama, colouredRing(),
                   {cv::Rect(0, 110 + kBand, 40, 50), cv::Rect(190, 110 + kBand, 150, 50)}, kBand);
  EXPECT_EQ(console.outLines(),
            (std::vector<std::string>{"0th ROI over cur sphere.", "1th ROI over cur sphere."}));
  EXPECT_EQ(cv::norm(panorama, before, cv::NORM_INF), 0.0);
}

}  // namespace
}  // namespace velmora
