#include "sim/rig_camera.h"

#include <fstream>
#include <limits>
#include <sstream>

#include "common/status.h"

namespace velmora::sim {

namespace {

void requirePositive(ShotSize shot) {
  if (shot.width <= 0 || shot.height <= 0) {
    throw Failure("Invalid shot size " + std::to_string(shot.width) + "x" +
                  std::to_string(shot.height) + ".");
  }
}

// Calibrations at kRealShotSize, in the model's frame (the Up model's columns are the stored
// rows). Focal lengths: tan(lensAngle(62 degrees)) is about 1.03, so 1760 px puts 62 degrees at
// the Up model's half width of 1824 px, and 2650 px puts it at the Down model's half width of
// 2736 px. A positive rotX turns the optical axis below the horizon.
struct ReferenceCalibration {
  double focal;
  double centerOffsetX;  // from the middle of the model's columns, in pixels
  double centerOffsetY;  // from the middle of the model's rows
  float rotX;
  float rotZ;
};
constexpr ReferenceCalibration kUpReference{1760.0, 6.0, -5.0, -0.40f, 0.012f};
constexpr ReferenceCalibration kDownReference{2650.0, 6.0, -5.0, 0.26f, -0.009f};

}  // namespace

const char* cameraName(RigCamera camera) {
  return camera == RigCamera::Up ? "Up" : "Down";
}

CameraGeometry rigGeometry(RigCamera camera, ShotSize shot, int gridWidth, int gridHeight) {
  requirePositive(shot);
  if (gridWidth <= 0 || gridHeight <= 0) {
    throw Failure("Invalid panorama grid " + std::to_string(gridWidth) + "x" +
                  std::to_string(gridHeight) + ".");
  }
  CameraGeometry geometry;
  const bool up = camera == RigCamera::Up;
  geometry.size1 = static_cast<uint32_t>(up ? shot.height : shot.width);
  geometry.size2 = static_cast<uint32_t>(up ? shot.width : shot.height);
  geometry.outWidth = static_cast<uint32_t>(gridWidth);
  geometry.outHeight = static_cast<uint32_t>(gridHeight);
  geometry.lensSelector = up ? kUpLens : kDownLens;
  return geometry;
}

CameraCalibration makeCalibration(double focal, double centerX, double centerY, float rotX,
                                  float rotZ) {
  CameraCalibration calibration;
  calibration.cameraMatrix = (cv::Mat_<double>(3, 3) << focal, 0.0, centerX,  //
                              0.0, focal, centerY,                            //
                              0.0, 0.0, 0.0);
  calibration.rotX = rotX;
  calibration.rotZ = rotZ;
  return calibration;
}

CameraCalibration defaultCalibration(RigCamera camera, ShotSize shot) {
  requirePositive(shot);
  const bool up = camera == RigCamera::Up;
  const ReferenceCalibration& reference = up ? kUpReference : kDownReference;
  // The model's columns carry the horizontal view; scale by them so it stays the same.
  const double columns = up ? shot.height : shot.width;
  const double rows = up ? shot.width : shot.height;
  const double referenceColumns = up ? kRealShotSize.height : kRealShotSize.width;
  const double scale = columns / referenceColumns;
  return makeCalibration(reference.focal * scale, columns * 0.5 + reference.centerOffsetX * scale,
                         rows * 0.5 + reference.centerOffsetY * scale, reference.rotX,
                         reference.rotZ);
}

std::string calibrationText(const CameraCalibration& calibration) {
  if (!calibration.hasCameraMatrix()) throw Failure("Calibration without a camera matrix.");
  std::ostringstream text;
  text.precision(std::numeric_limits<double>::max_digits10);
  const cv::Mat& matrix = calibration.cameraMatrix;
  text << "focal " << matrix.at<double>(0, 0) << "\n"
       << "centerX " << matrix.at<double>(0, 2) << "\n"
       << "centerY " << matrix.at<double>(1, 2) << "\n";
  text.precision(std::numeric_limits<float>::max_digits10);
  text << "rotX " << calibration.rotX << "\n"
       << "extra1 " << calibration.extra1 << "\n"
       << "rotZ " << calibration.rotZ << "\n"
       << "extra2 " << calibration.extra2 << "\n"
       << "extra3 " << calibration.extra3 << "\n"
       << "extra4 " << calibration.extra4 << "\n";
  return text.str();
}

CameraCalibration readCalibration(const std::string& path) {
  CameraCalibration calibration;
  if (!readCameraConfiguration(path, calibration)) {
    throw Failure("Cannot read the camera configuration " + path + ".");
  }
  return calibration;
}

void writeCalibration(const CameraCalibration& calibration, const std::string& path) {
  const std::string text = calibrationText(calibration);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (!file) throw Failure("Cannot write the camera configuration " + path + ".");
}

}  // namespace velmora::sim
