// The state behind the video handle.
#pragma once

#include <cstdint>
#include <string>

#include "rig/camera_setup.h"

namespace velmora {

struct VideoStitchHandle {
  // Filled by Init from its sixth, seventh, fifth and fourth arguments, in that order; the video
  // stitch overwrites the panorama size with the size of the panorama it reads.
  int32_t panoramaWidth = 0;
  int32_t panoramaHeight = 0;
  int32_t firstParameter = 0;
  int32_t secondParameter = 0;
  std::string modelConfigPath;
  std::string tableDir;
  int32_t code = 0;

  // The upper camera as the video stitch builds it: size1 and size2 from the stored parameters,
  // lens 0, the configuration and the Up table in tableDir; its grid is left 0 x 0 for the
  // panorama the stitch reads.
  CameraSetup upperCamera() const;
};

}  // namespace velmora
