#include "sim/ground_truth.h"

#include <opencv2/imgproc.hpp>
#include <string>

#include "common/black_bands.h"
#include "common/status.h"
#include "sim/parallel_rows.h"

namespace velmora::sim {

namespace {

void requireGrid(int width, int height) {
  if (width <= 0 || height <= 0) {
    throw Failure("Invalid panorama grid " + std::to_string(width) + "x" + std::to_string(height) +
                  ".");
  }
}

}  // namespace

cv::Mat sceneOnGrid(const EquirectScene& scene, int width, int height, double firstLongitude) {
  requireGrid(width, height);
  const GridFrame grid(width, height);
  cv::Mat truth(height, width, CV_8UC3);
  forEachRow(height, [&](int i) {
    const double latitude = grid.latitude(i);
    cv::Vec3b* out = truth.ptr<cv::Vec3b>(i);
    for (int j = 0; j < width; ++j) {
      const cv::Vec3f colour = scene.sample(firstLongitude + grid.panoramaLongitude(j), latitude);
      out[j] = cv::Vec3b(cv::saturate_cast<uchar>(colour[0]), cv::saturate_cast<uchar>(colour[1]),
                         cv::saturate_cast<uchar>(colour[2]));
    }
  });
  return truth;
}

cv::Mat panoramaTruth(const EquirectScene& scene, int width, int height) {
  return sceneOnGrid(scene, width, height, 0.0);
}

cv::Mat seenRegion(const SimulatedCamera& camera) {
  const int width = static_cast<int>(camera.geometry().outWidth);
  const int height = static_cast<int>(camera.geometry().outHeight);
  requireGrid(width, height);
  const GridFrame grid(width, height);
  cv::Mat seen = cv::Mat::zeros(height, width, CV_8UC1);
  forEachRow(height, [&](int i) {
    const double latitude = grid.latitude(i);
    uchar* out = seen.ptr<uchar>(i);
    for (int j = 0; j < width; ++j) {
      const cv::Vec3d world = directionOf(grid.panoramaLongitude(j), latitude);
      for (int position = 0; position < kHeadPositions; ++position) {
        cv::Point2d pixel;
        if (camera.pixelOfDirection(turnAboutVertical(world, -headAngle(position)), pixel)) {
          out[j] = 255;
          break;
        }
      }
    }
  });
  return seen;
}

int frameBandRows(int gridRows) {
  return blackBandRows(static_cast<uint32_t>(gridRows));
}

cv::Mat frameLikeLibrary(const cv::Mat& grid) {
  if (grid.empty()) throw Failure("Cannot frame an empty image.");
  const int band = frameBandRows(grid.rows);
  cv::Mat stacked;
  if (band > 0) {
    const cv::Mat black = cv::Mat::zeros(band, grid.cols, grid.type());
    cv::vconcat(std::vector<cv::Mat>{black, grid, black}, stacked);
  } else {
    stacked = grid;
  }
  cv::Mat framed;
  cv::resize(stacked, framed, grid.size(), 0.0, 0.0, cv::INTER_LINEAR);
  return framed;
}

}  // namespace velmora::sim
