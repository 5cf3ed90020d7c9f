#include "repair/panorama_sector.h"

namespace velmora {

namespace {

float columnAtDegrees(int width, float degrees) {
  return static_cast<float>(width) * degrees / 360.0f;
}

struct AcceptanceSpan {
  float from;  // fractions of the image width
  float to;
};

// Indexed by sector; sector 2 has no span.
constexpr AcceptanceSpan kSpans[6] = {
    {0.5555556f, 0.7777778f},   {0.7222222f, 0.9444444f},   {0.0f, 0.0f},
    {0.055555556f, 0.2777778f}, {0.22222222f, 0.44444445f}, {0.3888889f, 0.6111111f},
};

}  // namespace

int sectorOfColumn(int x, int width) {
  const float column = static_cast<float>(x);
  if (x < 0) return -1;
  if (column < columnAtDegrees(width, 30.0f)) return 2;
  if (column < columnAtDegrees(width, 90.0f)) return 3;
  if (column < columnAtDegrees(width, 150.0f)) return 4;
  if (column < columnAtDegrees(width, 210.0f)) return 5;
  if (column < columnAtDegrees(width, 270.0f)) return 0;
  if (column < columnAtDegrees(width, 330.0f)) return 1;
  if (x < width) return 2;
  return -1;
}

bool sectorAccepts(int imageWidth, int sector, int left, int right) {
  if (sector < 0 || sector > 5 || sector == 2) return false;
  const float width = static_cast<float>(imageWidth);
  const AcceptanceSpan& span = kSpans[sector];
  return static_cast<float>(left) > width * span.from &&
         static_cast<float>(right) < width * span.to;
}

int headPositionOfSector(int sector) {
  return (sector + 4) % 6;
}

}  // namespace velmora
