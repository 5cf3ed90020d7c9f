// One camera's calibration and its projection table: for every cell of an equirectangular output
// grid, the (u, v) pixel of the camera's shot that the cell's viewing direction falls on, or
// (0, 0) where the camera does not see the cell.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>

#include "rig/camera_config.h"
#include "rig/lens.h"

namespace velmora {

struct CameraGeometry {
  // The shot's columns and rows as the projection reads it (the Up camera's shots are turned a
  // quarter, so its size1 is the stored height).
  uint32_t size1 = 0;
  uint32_t size2 = 0;
  uint32_t outWidth = 0;
  uint32_t outHeight = 0;
  uint32_t lensSelector = kUpLens;
};

// The largest angle from the optical axis that the table keeps: 70 degrees, with pi taken as
// 3.1415926.
inline constexpr double kMaxViewAngle = 1.2217304555555555;
inline constexpr double kPi = 3.1415926;

class CameraModel {
 public:
  // Throws Failure when the output grid is empty.
  explicit CameraModel(const CameraGeometry& geometry);

  // Reads the camera configuration text; false when the file cannot be opened (the model then
  // keeps no camera matrix and cannot compute a table).
  bool readConfiguration(const std::string& path);

  // Computes the table from the calibration on `threads` threads (0: all cores). The result does
  // not depend on the thread count. Throws Failure when no configuration was read, or when its
  // focal length does not fit a float or its optical centre an int (or either is not a number).
  void computeTable(unsigned threads = 0);

  // Replaces the table; it must be outHeight x outWidth CV_32FC2.
  void setTable(cv::Mat table);
  void releaseTable() { table_.release(); }

  const CameraGeometry& geometry() const { return geometry_; }
  const CameraCalibration& calibration() const { return calibration_; }
  CameraCalibration& calibration() { return calibration_; }
  // outHeight x outWidth CV_32FC2 of (u, v); empty until computed or loaded.
  const cv::Mat& table() const { return table_; }

 private:
  CameraGeometry geometry_;
  CameraCalibration calibration_;
  cv::Mat table_;
};

}  // namespace velmora
