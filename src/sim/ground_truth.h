// What a correct stitch of simulated shots must show: the scene resampled onto the panorama grid,
// the part of it the camera's six shots see, and the framing the library gives its output.
#pragma once

#include <opencv2/core.hpp>

#include "sim/equirect_scene.h"
#include "sim/simulated_camera.h"

namespace velmora::sim {

// The scene on a grid of width x height cells whose rows have the projection table's latitudes
// and whose column j has longitude firstLongitude + 2 pi j / max(width, height). 8-bit BGR,
// bilinear, rounded. Throws Failure for an empty grid.
cv::Mat sceneOnGrid(const EquirectScene& scene, int width, int height, double firstLongitude);

// The unframed panorama a correct stitch produces on a width x height grid: column 0 at longitude
// 0 (sceneOnGrid with firstLongitude 0).
cv::Mat panoramaTruth(const EquirectScene& scene, int width, int height);

// CV_8UC1 of the panorama grid (outWidth x outHeight of the camera): 255 where at least one of
// the six shots sees the cell's direction (the table would give it a record), 0 elsewhere. The
// directions are those from the rotation axis, without parallax.
cv::Mat seenRegion(const SimulatedCamera& camera);

// Rows of one of the black bands the library frames a grid of `gridRows` rows with: trunc(0.12 x
// rows), the product in single precision.
int frameBandRows(int gridRows);

// The library's framing of a stitched grid image: black bands of frameBandRows(rows) rows above
// and below, the stack resized back to the image's size with
// bilinear interpolation. Works on any type; a seen mask framed this way is 255 only where every
// contributing grid cell was seen.
cv::Mat frameLikeLibrary(const cv::Mat& grid);

}  // namespace velmora::sim
