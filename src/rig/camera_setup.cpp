#include "rig/camera_setup.h"

#include "common/status.h"

namespace velmora {

cv::Size CameraSetup::shotSize() const {
  const int size1 = static_cast<int>(geometry.size1);
  const int size2 = static_cast<int>(geometry.size2);
  return camera == Camera::Up ? cv::Size(size2, size1) : cv::Size(size1, size2);
}

std::string tablePathIn(const std::string& tableDir, Camera camera) {
  return tableDir + (camera == Camera::Up ? "/table_Up.bin" : "/table_Down.bin");
}

void requireInitialised(const CameraSetup& setup) {
  if (!setup.initialised()) {
    throw Failure(
        std::string("Camera not initialised: call ZEMU_InitOptFlowStitchHandle with the ") +
        (setup.camera == Camera::Up ? "Up" : "Down") + " configuration first.");
  }
}

}  // namespace velmora
