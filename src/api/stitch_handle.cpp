#include "api/stitch_handle.h"

namespace velmora {

CameraSetup StitchHandle::camera(Camera which) const {
  CameraSetup setup;
  setup.camera = which;
  if (which == Camera::Up) {
    setup.geometry = CameraGeometry{upHeight, upWidth, upOutWidth, upOutHeight, kUpLens};
    setup.configPath = upConfigPath;
    setup.tablePath = tableDir + "/table_Up.bin";
  } else {
    setup.geometry = CameraGeometry{downWidth, downHeight, downOutWidth, downOutHeight, kDownLens};
    setup.configPath = downConfigPath;
    setup.tablePath = tableDir + "/table_Down.bin";
  }
  return setup;
}

}  // namespace velmora
