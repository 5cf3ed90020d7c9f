#include "rig/camera_config.h"

#include <fstream>

namespace velmora {

namespace {

template <typename Number>
void readPair(std::istream& in, Number& value) {
  std::string label;
  in >> label >> value;
}

}  // namespace

bool readCameraConfiguration(const std::string& path, CameraCalibration& calibration) {
  std::ifstream in(path);
  if (!in.is_open()) return false;

  double focal = 0.0;
  double centerX = 0.0;
  double centerY = 0.0;
  readPair(in, focal);
  readPair(in, centerX);
  readPair(in, centerY);
  readPair(in, calibration.rotX);
  readPair(in, calibration.extra1);
  readPair(in, calibration.rotZ);
  readPair(in, calibration.extra2);
  readPair(in, calibration.extra3);
  readPair(in, calibration.extra4);
  in.close();

  calibration.cameraMatrix = (cv::Mat_<double>(3, 3) << focal, 0.0, centerX,  //
                              0.0, focal, centerY,                            //
                              0.0, 0.0, 0.0);
  return true;
}

}  // namespace velmora
