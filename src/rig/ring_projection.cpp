#include "rig/ring_projection.h"

#include <mutex>
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
  // The reader's end, once, for every thread that asks; the cells projected per row then.
  std::once_flag joined;
  std::vector<cv::Range> columns;
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

namespace {

// Up shots turned a quarter counter-clockwise (into a pooled buffer); others as they are.
cv::Mat turnedForLens(cv::Mat shot, const CameraGeometry& geometry) {
  if (geometry.lensSelector != kUpLens) return shot;
  cv::Mat turned = pooledMat();
  turnQuarterCounterClockwise(shot, turned);
  return turned;
}

}  // namespace

bool RingProjection::tableRead(cv::Range gridColumns) {
  if (!loading_) throw Failure("A ring projection projects one ring only.");
  Loading& loading = *loading_;
  std::call_once(loading.joined, [&loading, gridColumns] {
    loading.reader.join();
    if (loading.loaded) loading.columns = projectedColumns(loading.model.table(), gridColumns);
  });
  return loading.loaded;
}

cv::Mat RingProjection::projectShot(cv::Mat shot) const {
  if (!loading_ || loading_->columns.empty()) {
    throw Failure("A ring projection projects shot by shot only once its table was read.");
  }
  const Loading& loading = *loading_;
  return projectShotColumns(turnedForLens(std::move(shot), loading.geometry), loading.model.table(),
                            loading.geometry, loading.columns);
}

std::vector<cv::Mat> RingProjection::project(std::vector<cv::Mat> shots, cv::Range gridColumns) {
  if (!loading_) throw Failure("A ring projection projects one ring only.");
  Loading& loading = *loading_;
  runForEachItem(shots.size(), [&shots, &loading](std::size_t i) {
    shots[i] = turnedForLens(std::move(shots[i]), loading.geometry);
  });
  std::call_once(loading.joined, [&loading] { loading.reader.join(); });
  if (!loading.loaded) buildTable(loading.model, loading.tablePath);
  std::vector<cv::Mat> projected =
      projectShots(shots, loading.model.table(), loading.geometry, gridColumns);
  loading_.reset();  // the table is not needed any more
  return projected;
}

}  // namespace velmora
