// Which head position's shot lies at a panorama column, and where that shot is trusted.
#pragma once

namespace velmora {

// Sector of panorama column x in a panorama `width` columns wide: 2 for longitudes [0, 30) and
// [330, 360) degrees, 3 for [30, 90), 4 for [90, 150), 5 for [150, 210), 0 for [210, 270),
// 1 for [270, 330), and -1 outside the panorama. A bound of d degrees is the column
// width x d / 360 in single precision; lower bounds are included, upper bounds excluded.
int sectorOfColumn(int x, int width);

// True when a structure spanning columns left..right lies strictly inside the sector's
// acceptance span, the sector's centre plus and minus 40 degrees of an image `imageWidth`
// columns wide. Sector 2 (it straddles the panorama's edge) and -1 never accept.
bool sectorAccepts(int imageWidth, int sector, int left, int right);

// The head position whose shot a sector shows.
int headPositionOfSector(int sector);

}  // namespace velmora
