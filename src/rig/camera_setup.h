// One rig camera as Init set it up: its geometry, its configuration file and where its projection
// table is kept. A plain value that the stitch operations take instead of the handle.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "rig/camera_model.h"

namespace velmora {

enum class Camera { Up, Down };

struct CameraSetup {
  Camera camera = Camera::Up;
  CameraGeometry geometry;
  std::string configPath;
  std::string tablePath;

  // False until Init recorded the camera's panorama grid.
  bool initialised() const { return geometry.outWidth != 0 && geometry.outHeight != 0; }
  // The size of the camera's shots as they are read from file: the Up camera's are turned a
  // quarter before projection, so its size1 counts their rows.
  cv::Size shotSize() const;
};

// The camera's table in a table folder: tableDir + "/table_Up.bin" or "/table_Down.bin".
std::string tablePathIn(const std::string& tableDir, Camera camera);

// Throws Failure naming the Init call when the camera was never initialised.
void requireInitialised(const CameraSetup& setup);

}  // namespace velmora
