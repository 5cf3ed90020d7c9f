#include "rig/camera_model.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <thread>
#include <vector>

#include "common/status.h"
#include "common/worker_threads.h"
#include "common/zeroed_mat.h"

namespace velmora {

namespace {

// Everything a row of the table needs that is the same for every row.
struct TableSetup {
  cv::Matx33d rotation;
  float focal = 0.0f;
  int centerX = 0;
  int centerY = 0;
  double scale = 0.0;
  double lastColumn = 0.0;
  double lastRow = 0.0;
  uint32_t lensSelector = kUpLens;
  // sinf and cosf of every column's longitude, shared by all rows.
  std::vector<float> sinLongitude;
  std::vector<float> cosLongitude;
};

TableSetup makeSetup(const CameraGeometry& geometry, const CameraCalibration& calibration) {
  TableSetup setup;
  cv::Mat rotation;
  cv::Rodrigues(cv::Vec3d(calibration.rotX, 0.0, calibration.rotZ), rotation);
  setup.rotation = cv::Matx33d(rotation);
  const double focal = calibration.cameraMatrix.at<double>(0, 0);
  const double centerX = calibration.cameraMatrix.at<double>(0, 2);
  const double centerY = calibration.cameraMatrix.at<double>(1, 2);
  // The focal length becomes a float and the centre is truncated to an integer: values beyond
  // those types (or not numbers at all) cannot describe a camera.
  const auto fitsInt = [](double value) { return value > INT_MIN - 1.0 && value < INT_MAX + 1.0; };
  if (!(std::abs(focal) <= FLT_MAX) || !fitsInt(centerX) || !fitsInt(centerY)) {
    throw Failure("Camera configuration: focal length or optical centre out of range.");
  }
  setup.focal = static_cast<float>(focal);
  setup.centerX = static_cast<int>(centerX);
  setup.centerY = static_cast<int>(centerY);
  setup.scale = std::max(geometry.outWidth, geometry.outHeight);
  setup.lastColumn = static_cast<double>(geometry.size1) - 1.0;
  setup.lastRow = static_cast<double>(geometry.size2) - 1.0;
  setup.lensSelector = geometry.lensSelector;
  setup.sinLongitude.resize(geometry.outWidth);
  setup.cosLongitude.resize(geometry.outWidth);
  for (uint32_t j = 0; j < geometry.outWidth; ++j) {
    const float longitude =
        static_cast<float>(2.0 * kPi * (j - geometry.outWidth * 0.5) / setup.scale);
    setup.sinLongitude[j] = sinf(longitude);
    setup.cosLongitude[j] = cosf(longitude);
  }
  return setup;
}

// Directions whose rotated z component (the cosine of their angle from the optical axis, the
// directions being unit vectors up to float rounding) is at most this lie more than 70.7 degrees
// off the axis, beyond the 70 degree limit with a margin far above any rounding: their theta
// cannot pass the limit, so they are skipped before the costly angles are computed.
constexpr double kBeyondViewCosine = 0.33;

// Whether no direction of the row can come within kBeyondViewCosine of the axis. The rotated z
// of the row's directions is r20 cos(lat) sin(lon) - r21 sin(lat) + r22 cos(lat) cos(lon), at
// most -r21 sin(lat) + |cos(lat)| sqrt(r20^2 + r22^2) for any longitude (Cauchy-Schwarz); the
// small additions cover the float rounding of the sines, cosines and products.
bool rowBeyondView(const cv::Matx33d& r, float sinLatitude, float cosLatitude) {
  const double bound = -r(2, 1) * sinLatitude +
                       std::fabs(cosLatitude) * std::hypot(r(2, 0), r(2, 2)) * (1.0 + 1e-5) + 1e-5;
  return bound <= kBeyondViewCosine;
}

// Writes the records of the row's cells in view into `records`, which starts all zero; the others
// stay (0, 0).
void computeRow(const TableSetup& setup, uint32_t outHeight, int row, cv::Vec2f* records) {
  const float latitude = static_cast<float>(-2.0 * kPi * (row - outHeight * 0.5) / setup.scale);
  const float cosLatitude = cosf(latitude);
  const float sinLatitude = sinf(latitude);
  const cv::Matx33d& r = setup.rotation;
  const int columns = static_cast<int>(setup.sinLongitude.size());
  if (rowBeyondView(r, sinLatitude, cosLatitude)) return;
  for (int j = 0; j < columns; ++j) {
    const double x0 = cosLatitude * setup.sinLongitude[j];
    const double y0 = -sinLatitude;
    const double z0 = cosLatitude * setup.cosLongitude[j];
    const double z = r(2, 0) * x0 + r(2, 1) * y0 + r(2, 2) * z0 + 0.0;
    if (z <= kBeyondViewCosine) continue;
    const double x = r(0, 0) * x0 + r(0, 1) * y0 + r(0, 2) * z0 + 0.0;
    const double y = r(1, 0) * x0 + r(1, 1) * y0 + r(1, 2) * z0 + 0.0;
    const float theta = static_cast<float>(std::atan2(std::sqrt(x * x + y * y), z));
    if (theta > kMaxViewAngle) continue;
    const double phi = std::atan2(-y, x);
    const float radius = tanf(lensAngle(theta, setup.lensSelector)) * setup.focal;
    const float u = static_cast<float>(std::cos(phi) * radius + setup.centerX);
    const float v = static_cast<float>(setup.centerY - std::sin(phi) * radius);
    if (u > setup.lastColumn || v > setup.lastRow || u < 0.0f || v < 0.0f) continue;
    records[j] = cv::Vec2f(u, v);
  }
}

}  // namespace

CameraModel::CameraModel(const CameraGeometry& geometry) : geometry_(geometry) {
  if (geometry.outWidth == 0 || geometry.outHeight == 0 || geometry.outWidth > INT32_MAX ||
      geometry.outHeight > INT32_MAX) {
    throw Failure("Invalid panorama grid " + std::to_string(geometry.outWidth) + "x" +
                  std::to_string(geometry.outHeight) + ".");
  }
}

bool CameraModel::readConfiguration(const std::string& path) {
  return readCameraConfiguration(path, calibration_);
}

void CameraModel::computeTable(unsigned threads) {
  if (!calibration_.hasCameraMatrix()) {
    throw Failure("No camera configuration read: cannot compute the projection table.");
  }
  const TableSetup setup = makeSetup(geometry_, calibration_);
  const int rows = static_cast<int>(geometry_.outHeight);
  // Most cells are never written: they keep the zero record without being touched.
  cv::Mat table = zeroedMat(rows, static_cast<int>(geometry_.outWidth), CV_32FC2);

  if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
  threads = std::min<unsigned>(threads, static_cast<unsigned>(rows));
  // Rows are independent; interleaved row blocks keep the threads' shares even though the rows
  // near the poles are cheaper than the rows at the horizon.
  constexpr int kBlock = 8;
  auto work = [&](unsigned first) {
    for (int start = static_cast<int>(first) * kBlock; start < rows;
         start += static_cast<int>(threads) * kBlock) {
      const int end = std::min(rows, start + kBlock);
      for (int row = start; row < end; ++row) {
        computeRow(setup, geometry_.outHeight, row, table.ptr<cv::Vec2f>(row));
      }
    }
  };
  WorkerThreads workers;
  for (unsigned t = 1; t < threads; ++t) workers.start([&work, t] { work(t); });
  work(0);
  workers.join();
  table_ = table;
}

void CameraModel::setTable(cv::Mat table) {
  CV_Assert(table.type() == CV_32FC2 && table.rows == static_cast<int>(geometry_.outHeight) &&
            table.cols == static_cast<int>(geometry_.outWidth));
  table_ = std::move(table);
}

}  // namespace velmora
