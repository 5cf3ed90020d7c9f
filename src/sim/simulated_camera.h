// One camera of the rig, mapping both ways between shot pixels and viewing directions exactly as
// the library's projection table does: the pixel is taken in the model's frame (the Up camera's
// shot turned a quarter counter-clockwise), the direction in the grid frame of the shot's head
// position (rig_frame.h).
#pragma once

#include <opencv2/core.hpp>

#include "rig/camera_config.h"
#include "rig/camera_model.h"
#include "sim/inverse_lens.h"

namespace velmora::sim {

class SimulatedCamera {
 public:
  // Throws Failure when the calibration has no camera matrix, a focal length that is not
  // positive, or the geometry an empty shot.
  SimulatedCamera(const CameraCalibration& calibration, const CameraGeometry& geometry);

  // The unit direction that model pixel (u, v) sees, inverting r = tan(lensAngle(theta)) x focal
  // numerically. False, with direction untouched, when the pixel lies more than 70 degrees off
  // the optical axis (the table never points there).
  bool directionOfPixel(double u, double v, cv::Vec3d& direction) const;

  // The model pixel that a direction falls on, computed as the projection table computes a
  // record. False when the direction is more than 70 degrees off the axis or the pixel falls
  // outside [0, size1 - 1] x [0, size2 - 1].
  bool pixelOfDirection(const cv::Vec3d& direction, cv::Point2d& pixel) const;

  const CameraGeometry& geometry() const { return geometry_; }

 private:
  CameraGeometry geometry_;
  cv::Matx33d rotation_;
  double focal_ = 0.0;
  int centerX_ = 0;
  int centerY_ = 0;
  InverseLensTable inverseLens_;
};

}  // namespace velmora::sim
