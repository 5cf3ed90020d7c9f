#include "rig/ring_projection.h"

#include <opencv2/core.hpp>

#include "common/parallel_items.h"
#include "rig/projection.h"
#include "rig/table_cache.h"

namespace velmora {

std::vector<cv::Mat> projectRing(const CameraSetup& camera, std::vector<cv::Mat> shots) {
  requireInitialised(camera);
  const CameraGeometry& geometry = camera.geometry;
  CameraModel model(geometry);
  model.readConfiguration(camera.configPath);
  if (geometry.lensSelector == kUpLens) {
    runForEachItem(shots.size(), [&shots](std::size_t i) {
      cv::rotate(shots[i], shots[i], cv::ROTATE_90_COUNTERCLOCKWISE);
    });
  }
  ensureTable(model, camera.tablePath);
  return projectShots(shots, model.table(), geometry);
}

}  // namespace velmora
