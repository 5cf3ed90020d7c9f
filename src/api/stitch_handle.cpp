#include "api/stitch_handle.h"

namespace velmora {

CameraGeometry StitchHandle::geometry(Camera camera) const {
  if (camera == Camera::Up) {
    return CameraGeometry{upHeight, upWidth, upOutWidth, upOutHeight, kUpLens};
  }
  return CameraGeometry{downWidth, downHeight, downOutWidth, downOutHeight, kDownLens};
}

const std::string& StitchHandle::configPath(Camera camera) const {
  return camera == Camera::Up ? upConfigPath : downConfigPath;
}

std::string StitchHandle::tablePath(Camera camera) const {
  return tableDir + (camera == Camera::Up ? "/table_Up.bin" : "/table_Down.bin");
}

}  // namespace velmora
