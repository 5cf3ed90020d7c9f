// The viewer-ready form of a panorama the library wrote: the black bands taken off, the rows put
// back at the latitudes the projection table gives them, and the image cut to the part of the
// sphere it covers, so that an equirectangular viewer shows it undistorted.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace velmora::tool {

// Where a panorama grid of gridWidth x gridHeight cells lies on the full sphere. The projection
// table spaces rows and columns alike, 2 pi / max(width, height) radians apart, with the grid's
// centre row on the horizon: the full sphere is max(width, height) columns by half as many rows,
// and the grid covers a window of it. A grid at least twice as wide as high covers every
// longitude and the latitudes within +-pi x height / width (the whole sphere at exactly 2:1); a
// narrower grid reaches past a pole, and its rows there are left out of the window.
struct SphereWindow {
  int fullWidth = 0;
  int fullHeight = 0;
  // The window in the full sphere's pixels.
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
  // The grid rows that make up the window: gridTop to gridTop + height - 1.
  int gridTop = 0;

  // Longitude of the full sphere's centre column from the stitched panorama's column 0 (the
  // head's first position), in degrees.
  double centreLongitudeDegrees() const;
};

// Throws std::invalid_argument for an empty grid.
SphereWindow sphereWindowOfGrid(int gridWidth, int gridHeight);

// The grid image behind a framed panorama: its bands removed and its rows resampled to where they
// were before the library squeezed band, grid and band into the grid's height (bilinear, as the
// library's own resize). Same size and type as the framed image. Throws std::invalid_argument for
// an empty image.
cv::Mat unframePanorama(const cv::Mat& framed);

// The viewer-ready image of a framed panorama: unframed and cut to its sphere window.
cv::Mat viewerReadyPanorama(const cv::Mat& framed);

// What a viewer-ready file carries besides its pixels.
struct ViewerReadyDetails {
  // The compass heading of the head's first position, in degrees clockwise from north; the
  // written heading is that of the full sphere's centre.
  double firstPositionHeading = 0.0;
  // A shot whose camera details (make, model, capture time, GPS) the panorama takes over; empty
  // for none.
  std::string cameraShot;
};

// Reads the framed panorama at `framedPath` and writes its viewer-ready form to `outputPath` (a
// JPEG) with its photo-sphere metadata. Returns the window written. Throws std::runtime_error
// naming the file for an unreadable input, an output that is not .jpg/.jpeg or cannot be
// written; a partly written output is removed again.
SphereWindow exportViewerReady(const std::string& framedPath, const std::string& outputPath,
                               const ViewerReadyDetails& details);

// Beside a panorama: "dir/name.ext" gives "dir/name_360.jpg".
std::string viewerReadyPathBeside(const std::string& panoramaPath);

}  // namespace velmora::tool
