#include "repair/panorama_sector.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

constexpr int kWidth = 3600;  // ten columns per degree

TEST(SectorOfColumn, FollowsTheSixtyDegreeSectorsAroundThePanorama) {
  EXPECT_EQ(sectorOfColumn(-1, kWidth), -1);
  EXPECT_EQ(sectorOfColumn(0, kWidth), 2);
  EXPECT_EQ(sectorOfColumn(299, kWidth), 2);
  EXPECT_EQ(sectorOfColumn(300, kWidth), 3);
  EXPECT_EQ(sectorOfColumn(899, kWidth), 3);
  EXPECT_EQ(sectorOfColumn(900, kWidth), 4);
  EXPECT_EQ(sectorOfColumn(1500, kWidth), 5);
  EXPECT_EQ(sectorOfColumn(2100, kWidth), 0);
  EXPECT_EQ(sectorOfColumn(2700, kWidth), 1);
  EXPECT_EQ(sectorOfColumn(3299, kWidth), 1);
  EXPECT_EQ(sectorOfColumn(3300, kWidth), 2);
  EXPECT_EQ(sectorOfColumn(3599, kWidth), 2);
  EXPECT_EQ(sectorOfColumn(3600, kWidth), -1);
}

TEST(SectorOfColumn, BoundsAreFractionalColumns) {
  // 1000 columns: 30 degrees is column 83.33, so 83 is still sector 2 and 84 is sector 3.
  EXPECT_EQ(sectorOfColumn(83, 1000), 2);
  EXPECT_EQ(sectorOfColumn(84, 1000), 3);
}

TEST(SectorAccepts, StructuresMustLieStrictlyInsideTheSpan) {
  // Sector 3 spans 20 to 100 degrees: columns 200 to 1000.0001 (0.2777778 is a hair above 5/18).
  EXPECT_TRUE(sectorAccepts(kWidth, 3, 201, 1000));
  EXPECT_FALSE(sectorAccepts(kWidth, 3, 200, 900));
  EXPECT_FALSE(sectorAccepts(kWidth, 3, 300, 1001));
  // Sector 0 spans 200 to 280 degrees; sector 5 140 to 220.
  EXPECT_TRUE(sectorAccepts(kWidth, 0, 2100, 2700));
  EXPECT_FALSE(sectorAccepts(kWidth, 5, 2100, 2700));
  EXPECT_TRUE(sectorAccepts(kWidth, 5, 1500, 2100));
}

TEST(SectorAccepts, TheEdgeSectorAndNoSectorNeverAccept) {
  EXPECT_FALSE(sectorAccepts(kWidth, 2, 10, 20));
  EXPECT_FALSE(sectorAccepts(kWidth, 2, 3400, 3500));
  EXPECT_FALSE(sectorAccepts(kWidth, -1, 1000, 1100));
}

TEST(HeadPositionOfSector, SectorsCentreOnTheirHeadPositionsAxis) {
  // Head position p looks at column p x W / 6; sector s is centred on (60 s + 240) mod 360.
  for (int sector = 0; sector < 6; ++sector) {
    const int position = headPositionOfSector(sector);
    const int axisColumn = position * kWidth / 6;
    const int centreColumn = ((60 * sector + 240) % 360) * kWidth / 360;
    EXPECT_EQ(axisColumn, centreColumn) << "sector " << sector;
  }
}

}  // namespace
}  // namespace velmora
