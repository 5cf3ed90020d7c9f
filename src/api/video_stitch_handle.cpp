#include "api/video_stitch_handle.h"

namespace velmora {

CameraSetup VideoStitchHandle::upperCamera() const {
  CameraSetup setup;
  setup.camera = Camera::Up;
  setup.geometry = CameraGeometry{static_cast<uint32_t>(firstParameter),
                                  static_cast<uint32_t>(secondParameter), 0, 0, kUpLens};
  setup.configPath = modelConfigPath;
  setup.tablePath = tablePathIn(tableDir, Camera::Up);
  return setup;
}

}  // namespace velmora
