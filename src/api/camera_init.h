// Initialisation of one camera on a stitch handle.
#pragma once

#include <string>

#include "api/stitch_handle.h"

namespace velmora {

struct CameraInitRequest {
  std::string configPath;
  std::string tableDir;
  int width = 0;
  int height = 0;
  int outWidth = 0;
  int outHeight = 0;
};

// Chooses the camera from the configuration path, records its sizes, paths and table directory,
// and makes sure the camera's projection table cache exists (loading it, or computing and
// writing it). Prints the banner (Up only) and the done lines. An unrecognised path prints
// "Configure path:<path> error." and stores -1; other failures throw.
void initCamera(StitchHandle& handle, const CameraInitRequest& request);

}  // namespace velmora
