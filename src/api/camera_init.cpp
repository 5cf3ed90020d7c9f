#include "api/camera_init.h"

#include "api/camera_choice.h"
#include "common/atomic_file.h"
#include "common/console.h"
#include "common/status.h"
#include "rig/table_cache.h"

namespace velmora {

void initCamera(StitchHandle& handle, const CameraInitRequest& request) {
  const auto camera = cameraFromConfigPath(request.configPath);
  if (!camera) {
    console::err("Configure path:", request.configPath, " error.");
    handle.code = kStatusFailure;
    return;
  }
  if (*camera == Camera::Up) {
    console::out(console::kVersionBanner);
    handle.upHeight = static_cast<uint32_t>(request.height);
    handle.upWidth = static_cast<uint32_t>(request.width);
    handle.upOutWidth = static_cast<uint32_t>(request.outWidth);
    handle.upOutHeight = static_cast<uint32_t>(request.outHeight);
    handle.upConfigPath = request.configPath;
  } else {
    handle.downWidth = static_cast<uint32_t>(request.width);
    handle.downHeight = static_cast<uint32_t>(request.height);
    handle.downOutWidth = static_cast<uint32_t>(request.outWidth);
    handle.downOutHeight = static_cast<uint32_t>(request.outHeight);
    handle.downConfigPath = request.configPath;
  }
  handle.tableDir = request.tableDir;

  const CameraSetup setup = handle.camera(*camera);
  // Temporaries of this table left by writers killed before their rename.
  removeAbandonedTemporariesOf(setup.tablePath);
  CameraModel model(setup.geometry);
  model.readConfiguration(request.configPath);
  ensureTable(model, setup.tablePath);

  console::out(*camera == Camera::Up ? "Init UpCam done." : "Init DownCam done.");
  console::out(console::kSeparator);
}

}  // namespace velmora
