#include "repair/panorama_sector.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

constexpr int kWidth = 3600;  // ten columns per degree

TEST(SectorOfColumn, FollowsTheSixtyDegreeSectorsAroundThePanorama) {
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

}  // namespace
}  // namespace velmora
