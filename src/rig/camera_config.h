// The camera configuration text: nine (label, number) pairs read as whitespace-separated tokens.
// Labels are read and ignored; only the order of the numbers counts.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace velmora {

struct CameraCalibration {
  // 3x3 doubles: focal, 0, centerX; 0, focal, centerY; 0, 0, 0. Empty until a file was read.
  cv::Mat cameraMatrix;
  // The rotation vector is (rotX, 0, rotZ); the extras are kept but no computation reads them.
  float rotX = 0.0f;
  float extra1 = 0.0f;
  float rotZ = 0.0f;
  float extra2 = 0.0f;
  float extra3 = 0.0f;
  float extra4 = 0.0f;

  bool hasCameraMatrix() const { return !cameraMatrix.empty(); }
};

// Reads the file at path into calibration. Returns false, leaving calibration as it was, when
// the file cannot be opened. A short or malformed file stops at the first number that does not
// parse: that number reads as 0 and the ones after it keep their earlier values (0 for a fresh
// calibration). The camera matrix is built from whatever the first three numbers became.
bool readCameraConfiguration(const std::string& path, CameraCalibration& calibration);

}  // namespace velmora
