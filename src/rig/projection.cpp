#include "rig/projection.h"

#include <cmath>

#include "api/status.h"
#include "common/worker_threads.h"

namespace velmora {

cv::Mat projectShot(const cv::Mat& shot, const cv::Mat& table, const CameraGeometry& geometry) {
  if (shot.type() != CV_8UC3 || shot.cols != static_cast<int>(geometry.size1) ||
      shot.rows != static_cast<int>(geometry.size2)) {
    throw Failure("Projection: shot of " + std::to_string(shot.cols) + "x" +
                  std::to_string(shot.rows) + " does not fit the camera's " +
                  std::to_string(geometry.size1) + "x" + std::to_string(geometry.size2) + ".");
  }
  CV_Assert(table.type() == CV_32FC2);
  cv::Mat projected = cv::Mat::zeros(table.rows, table.cols, CV_8UC3);
  const int lastInteriorX = static_cast<int>(geometry.size1) - 2;
  const int lastInteriorY = static_cast<int>(geometry.size2) - 2;
  const size_t step = shot.step[0];
  const float columns = static_cast<float>(shot.cols);
  const float rows = static_cast<float>(shot.rows);

  for (int i = 0; i < table.rows; ++i) {
    const cv::Vec2f* records = table.ptr<cv::Vec2f>(i);
    uchar* out = projected.ptr<uchar>(i);
    for (int j = 0; j < table.cols; ++j) {
      const float u = records[j][0];
      const float v = records[j][1];
      if (u == 0.0f || v == 0.0f) continue;
      // A damaged cache file must not make us read outside the shot (NaN fails too).
      if (!(u > 0.0f && v > 0.0f && u < columns && v < rows)) continue;
      const int x0 = static_cast<int>(std::floor(u));
      const int y0 = static_cast<int>(std::floor(v));
      const float fx = u - x0;
      const float fy = v - y0;
      const uchar* p00 = shot.data + y0 * step + x0 * 3;
      uchar* cell = out + j * 3;
      if (x0 > 1 && x0 < lastInteriorX && y0 >= 2 && y0 < lastInteriorY) {
        const uchar* p01 = p00 + step;
        const float w00 = (1 - fx) * (1 - fy);
        const float w10 = fx * (1 - fy);
        const float w01 = (1 - fx) * fy;
        const float w11 = fx * fy;
        for (int c = 0; c < 3; ++c) {
          cell[c] =
              static_cast<uchar>(w00 * p00[c] + w10 * p00[3 + c] + w01 * p01[c] + w11 * p01[3 + c]);
        }
      } else {
        cell[0] = p00[0];
        cell[1] = p00[1];
        cell[2] = p00[2];
      }
    }
  }
  return projected;
}

std::vector<cv::Mat> projectShots(const std::vector<cv::Mat>& shots, const cv::Mat& table,
                                  const CameraGeometry& geometry) {
  std::vector<cv::Mat> projected(shots.size());
  WorkerThreads workers;
  for (size_t k = 0; k < shots.size(); ++k) {
    workers.start([&, k] { projected[k] = projectShot(shots[k], table, geometry); });
  }
  workers.join();
  return projected;
}

}  // namespace velmora
