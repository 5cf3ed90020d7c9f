#include "rig/ring_projection.h"

#include <opencv2/core.hpp>

#include "common/buffer_pool.h"
#include "common/parallel_items.h"
#include "common/quarter_turn.h"
#include "common/status.h"
#include "common/worker_threads.h"
#include "rig/projection.h"
#include "rig/table_cache.h"

namespace velmora {

std::vector<cv::Mat> projectRing(const CameraSetup& camera, std::vector<cv::Mat> shots,
                                 cv::Range gridColumns) {
  return RingProjection(camera).project(std::move(shots), gridColumns);
}

struct RingProjection::Loading {
  explicit Loading(const CameraSetup& camera)
      : geometry(camera.geometry), model(geometry), tablePath(camera.tablePath) {}

  CameraGeometry geometry;
  CameraModel model;
  std::string tablePath;
  bool loaded = false;
  WorkerThreads reader;
};

RingProjection::RingProjection(const CameraSetup& camera) {
  requireInitialised(camera);
  loading_ = std::make_unique<Loading>(camera);
  loading_->model.readConfiguration(camera.configPath);
  Loading& loading = *loading_;
  loading.reader.start(
      [&loading] { loading.loaded = loadTable(loading.model, loading.tablePath); });
}

RingProjection::~RingProjection() = default;

std::vector<cv::Mat> RingProjection::project(std::vector<cv::Mat> shots, cv::Range gridColumns) {
  if (!loading_) throw Failure("A ring projection projects one ring only.");
  Loading& loading = *loading_;
  if (loading.geometry.lensSelector == kUpLens) {
    runForEachItem(shots.size(), [&shots](std::size_t i) {
      cv::Mat turned = pooledMat();
      turnQuarterCounterClockwise(shots[i], turned);
      shots[i] = turned;
    });
  }
  loading.reader.join();
  if (!loading.loaded) buildTable(loading.model, loading.tablePath);
  std::vector<cv::Mat> projected =
      projectShots(shots, loading.model.table(), loading.geometry, gridColumns);
  loading_.reset();  // the table is not needed any more
  return projected;
}

}  // namespace velmora
