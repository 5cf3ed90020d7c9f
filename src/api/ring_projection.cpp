#include "api/ring_projection.h"

#include <opencv2/core.hpp>

#include "common/parallel_items.h"
#include "common/status.h"
#include "rig/projection.h"
#include "rig/table_cache.h"

namespace velmora {

void requireInitialised(const StitchHandle& handle, Camera camera) {
  const CameraGeometry geometry = handle.geometry(camera);
  if (geometry.outWidth == 0 || geometry.outHeight == 0) {
    throw Failure(
        std::string("Camera not initialised: call ZEMU_InitOptFlowStitchHandle with the ") +
        (camera == Camera::Up ? "Up" : "Down") + " configuration first.");
  }
}

std::vector<cv::Mat> projectRing(const StitchHandle& handle, Camera camera,
                                 std::vector<cv::Mat> shots) {
  requireInitialised(handle, camera);
  const CameraGeometry geometry = handle.geometry(camera);
  CameraModel model(geometry);
  model.readConfiguration(handle.configPath(camera));
  if (geometry.lensSelector == kUpLens) {
    runForEachItem(shots.size(), [&shots](std::size_t i) {
      cv::rotate(shots[i], shots[i], cv::ROTATE_90_COUNTERCLOCKWISE);
    });
  }
  ensureTable(model, handle.tablePath(camera));
  return projectShots(shots, model.table(), geometry);
}

}  // namespace velmora
