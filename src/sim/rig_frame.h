// The frame in which the simulated rig sees its scene. Directions follow the projection table:
// longitude lon and latitude lat give (cos lat sin lon, -sin lat, cos lat cos lon), so +Z is the
// forward direction, +X points to the right and +Y down. The world frame is the grid frame of head
// position 0; head position p is the head turned by p x 60 degrees towards increasing longitude.
// With that turn, the stitched panorama's column c shows world longitude 2 pi c / W (the stitch
// driver puts the grid centre column of position p at column p x W / 6), and an equirectangular
// scene image shows world longitude 2 pi x / width at its column x and latitude
// pi / 2 - pi y / height at its row y, so the panorama shows the scene where the scene image has
// it.
#pragma once

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

namespace velmora::sim {

inline constexpr int kHeadPositions = 6;
inline constexpr double kFullTurn = 2.0 * CV_PI;

// The head's turn at position p (0 to 5), in radians.
inline double headAngle(int position) {
  return position * kFullTurn / kHeadPositions;
}

inline cv::Vec3d directionOf(double longitude, double latitude) {
  const double c = std::cos(latitude);
  return cv::Vec3d(c * std::sin(longitude), -std::sin(latitude), c * std::cos(longitude));
}

inline double longitudeOf(const cv::Vec3d& d) {
  return std::atan2(d[0], d[2]);
}

inline double latitudeOf(const cv::Vec3d& d) {
  const double norm = std::sqrt(d.dot(d));
  return std::asin(std::max(-1.0, std::min(1.0, -d[1] / norm)));
}

// Turns a direction about the vertical axis by angle towards increasing longitude: a direction of
// a head position's grid frame becomes the world direction with headAngle(position).
inline cv::Vec3d turnAboutVertical(const cv::Vec3d& d, double angle) {
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  return cv::Vec3d(d[0] * c + d[2] * s, d[1], d[2] * c - d[0] * s);
}

// The longitude and latitude of a grid cell as the projection table computes them, with the
// longitude of column 0 given: the table's own grid has column 0 at -2 pi (W / 2) / scale.
// scale = max(W, H).
struct GridFrame {
  int width = 0;
  int height = 0;
  double scale = 0.0;

  GridFrame(int gridWidth, int gridHeight)
      : width(gridWidth), height(gridHeight), scale(std::max(gridWidth, gridHeight)) {}

  double latitude(double row) const { return -kFullTurn * (row - height * 0.5) / scale; }
  // Longitude of a column of the table's grid (the camera's axis at the centre column).
  double tableLongitude(double column) const { return kFullTurn * (column - width * 0.5) / scale; }
  // Longitude of a column of the stitched panorama (column 0 at longitude 0).
  double panoramaLongitude(double column) const { return kFullTurn * column / scale; }
};

}  // namespace velmora::sim
