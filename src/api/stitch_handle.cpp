#include "api/stitch_handle.h"

namespace velmora {

CameraSetup StitchHandle::camera(Camera which) const {
  CameraSetup setup;
  setup.camera = which;
  setup.tablePath = tablePathIn(tableDir, which);
  if (which == Camera::Up) {
    setup.geometry = CameraGeometry{upHeight, upWidth, upOutWidth, upOutHeight, kUpLens};
    setup.configPath = upConfigPath;
  } else {
    setup.geometry = CameraGeometry{downWidth, downHeight, downOutWidth, downOutHeight, kDownLens};
    setup.configPath = downConfigPath;
  }
  return setup;
}

}  // namespace velmora
