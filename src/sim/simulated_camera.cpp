#include "sim/simulated_camera.h"

#include <cmath>
#include <opencv2/calib3d.hpp>

#include "common/status.h"
#include "rig/lens.h"

namespace velmora::sim {

namespace {

const CameraCalibration& checked(const CameraCalibration& calibration) {
  if (!calibration.hasCameraMatrix()) throw Failure("Simulated camera without a calibration.");
  if (!(calibration.cameraMatrix.at<double>(0, 0) > 0.0)) {
    throw Failure("Simulated camera with a focal length that is not positive.");
  }
  return calibration;
}

}  // namespace

SimulatedCamera::SimulatedCamera(const CameraCalibration& calibration,
                                 const CameraGeometry& geometry)
    : geometry_(geometry), inverseLens_(geometry.lensSelector) {
  checked(calibration);
  if (geometry.size1 == 0 || geometry.size2 == 0) throw Failure("Simulated camera without a shot.");
  cv::Mat rotation;
  cv::Rodrigues(cv::Vec3d(calibration.rotX, 0.0, calibration.rotZ), rotation);
  rotation_ = cv::Matx33d(rotation);
  // The table reads the focal length as a float and truncates the centre to whole pixels.
  focal_ = static_cast<float>(calibration.cameraMatrix.at<double>(0, 0));
  centerX_ = static_cast<int>(calibration.cameraMatrix.at<double>(0, 2));
  centerY_ = static_cast<int>(calibration.cameraMatrix.at<double>(1, 2));
}

bool SimulatedCamera::directionOfPixel(double u, double v, cv::Vec3d& direction) const {
  // u = cos(phi) r + cx and v = cy - sin(phi) r, with r = tan(lensAngle(theta)) x focal.
  const double dx = u - centerX_;
  const double dy = centerY_ - v;
  const double radius = std::sqrt(dx * dx + dy * dy);
  const double theta = inverseLens_.theta(std::atan(radius / focal_));
  if (theta < 0.0) return false;
  const double phi = std::atan2(dy, dx);
  // phi = atan2(-Y, X) and theta = atan2(sqrt(X^2 + Y^2), Z) in the camera's frame.
  const double sinTheta = std::sin(theta);
  const cv::Vec3d camera(sinTheta * std::cos(phi), -sinTheta * std::sin(phi), std::cos(theta));
  direction = rotation_.t() * camera;
  return true;
}

bool SimulatedCamera::pixelOfDirection(const cv::Vec3d& direction, cv::Point2d& pixel) const {
  const cv::Vec3d camera = rotation_ * direction;
  const double x = camera[0];
  const double y = camera[1];
  const double z = camera[2];
  const float theta = static_cast<float>(std::atan2(std::sqrt(x * x + y * y), z));
  if (theta > kMaxViewAngle) return false;
  const double phi = std::atan2(-y, x);
  const double radius = std::tan(lensAngle(theta, geometry_.lensSelector)) * focal_;
  const double u = std::cos(phi) * radius + centerX_;
  const double v = centerY_ - std::sin(phi) * radius;
  if (u > geometry_.size1 - 1.0 || v > geometry_.size2 - 1.0 || u < 0.0 || v < 0.0) return false;
  pixel = cv::Point2d(u, v);
  return true;
}

}  // namespace velmora::sim
