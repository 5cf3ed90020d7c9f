// Projection of one camera's ring of six shots onto its panorama grid.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <vector>

#include "rig/camera_setup.h"

namespace velmora {

// Projects the shots of the camera with its table, loaded from the setup's table path or computed
// and written there. Up shots are turned a quarter counter-clockwise first, so that their columns
// run along the camera's stored height. Throws Failure when the camera was never initialised, its
// table cannot be had, or a shot does not fit the camera.
// Only the grid's `gridColumns` are projected (projectShots).
std::vector<cv::Mat> projectRing(const CameraSetup& camera, std::vector<cv::Mat> shots,
                                 cv::Range gridColumns = cv::Range::all());

// projectRing in two halves, so that the table is read while the caller still reads its shots:
// construction starts reading the camera's table file on a thread of its own; project() waits
// for it and projects as projectRing does, computing and writing the table only then when the
// file could not be read (so a call that fails on its shots never writes a table). The thread is
// joined by project() or, at the latest, by the destructor. project() serves one ring only.
// Throws as projectRing.
class RingProjection {
 public:
  explicit RingProjection(const CameraSetup& camera);
  RingProjection(const RingProjection&) = delete;
  RingProjection& operator=(const RingProjection&) = delete;
  ~RingProjection();

  std::vector<cv::Mat> project(std::vector<cv::Mat> shots,
                               cv::Range gridColumns = cv::Range::all());

  // Shot by shot instead, as each is read: tableRead() waits for the table file and says whether
  // it could be read (it may be asked from several threads at once). Only then may
  // projectShot() be called, from several threads at once, each shot turned and projected as
  // project() would, over the `gridColumns` given to the first call of tableRead(). When the
  // file could not be read, project() is the way (it computes the table).
  bool tableRead(cv::Range gridColumns = cv::Range::all());
  cv::Mat projectShot(cv::Mat shot) const;

 private:
  struct Loading;
  std::unique_ptr<Loading> loading_;
};

}  // namespace velmora
