// Shots rendered by the simulator and projected by the library's own table must show the scene
// where the rig frame says it is: the simulator is the exact inverse of the camera model.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "rig/camera_model.h"
#include "rig/projection.h"
#include "sim/builtin_scene.h"
#include "sim/ground_truth.h"
#include "sim/rig_camera.h"
#include "sim/shot_exposure.h"
#include "sim/shot_renderer.h"
#include "sim/simulated_camera.h"

namespace velmora::sim {
namespace {

constexpr ShotSize kShot{400, 300};
constexpr int kGridWidth = 512;
constexpr int kGridHeight = 256;

// The library's path from a stored shot to its projected image: the Up shot turned a quarter
// counter-clockwise, then resampled through the camera's table.
class LibraryProjection {
 public:
  explicit LibraryProjection(RigCamera rigCamera, int gridWidth = kGridWidth,
                             int gridHeight = kGridHeight)
      : calibration_(defaultCalibration(rigCamera, kShot)),
        model_(rigGeometry(rigCamera, kShot, gridWidth, gridHeight)) {
    model_.calibration() = calibration_;
    model_.computeTable(1);
  }

  cv::Mat project(const cv::Mat& storedShot) const {
    cv::Mat shot = storedShot;
    if (model_.geometry().lensSelector == kUpLens) {
      cv::rotate(storedShot, shot, cv::ROTATE_90_COUNTERCLOCKWISE);
    }
    return projectShot(shot, model_.table(), model_.geometry());
  }

  // 255 where the table has a record.
  cv::Mat seenCells() const {
    const cv::Mat& table = model_.table();
    cv::Mat seen(table.size(), CV_8UC1);
    for (int i = 0; i < table.rows; ++i) {
      const cv::Vec2f* records = table.ptr<cv::Vec2f>(i);
      for (int j = 0; j < table.cols; ++j) {
        seen.at<uchar>(i, j) = (records[j][0] != 0.0f && records[j][1] != 0.0f) ? 255 : 0;
      }
    }
    return seen;
  }

  SimulatedCamera camera() const { return SimulatedCamera(calibration_, model_.geometry()); }
  const CameraGeometry& geometry() const { return model_.geometry(); }

 private:
  CameraCalibration calibration_;
  CameraModel model_;
};

cv::Mat renderShot(const cv::Mat& scene, const LibraryProjection& library, int position) {
  return developShot(renderShotLight(EquirectScene(scene), library.camera(), position), Exposure());
}

// PSNR of a against b over the cells where mask is set, a few cells in from its border (the
// library's border cells take the nearest pixel instead of the bilinear mix).
double maskedPsnr(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask) {
  cv::Mat inner;
  cv::erode(mask, inner, cv::Mat(), cv::Point(-1, -1), 3);
  cv::Mat difference;
  cv::absdiff(a, b, difference);
  difference.convertTo(difference, CV_32F);
  difference = difference.mul(difference);
  const double count = cv::countNonZero(inner) * 3.0;
  const cv::Scalar sums = cv::sum(difference.setTo(0, inner == 0));
  const double mse = (sums[0] + sums[1] + sums[2]) / count;
  return 10.0 * std::log10(255.0 * 255.0 / std::max(mse, 1e-10));
}

// The built-in scene at the grid's resolution, its pixel grain softened: bilinear resampling
// keeps such a scene nearly intact, so what is left of the difference is misplacement.
cv::Mat smoothScene() {
  cv::Mat scene = makeBuiltinScene(kGridWidth, kGridHeight);
  cv::GaussianBlur(scene, scene, cv::Size(), 1.0);
  return scene;
}

// A black scene with a soft round dot every 10 degrees of longitude and latitude (up to 60
// degrees from the horizon), whose centroids can be located to a small fraction of a cell.
class MarkerScene {
 public:
  static constexpr int kWindow = 4;  // centroid window: (2 kWindow + 1) cells square

  MarkerScene() : image_(kGridHeight, kGridWidth, CV_8UC3) {
    constexpr double kSigma = 1.2;  // scene pixels
    cv::Mat light = cv::Mat::zeros(kGridHeight, kGridWidth, CV_32F);
    for (int latitude = -60; latitude <= 60; latitude += 10) {
      for (int longitude = 0; longitude < 360; longitude += 10) {
        const cv::Point2d marker(longitude * CV_PI / 180.0, latitude * CV_PI / 180.0);
        positions_.push_back(marker);
        const double x = marker.x * kGridWidth / kFullTurn;
        const double y = (0.5 * CV_PI - marker.y) * kGridHeight / CV_PI;
        for (int dy = -5; dy <= 5; ++dy) {
          for (int dx = -5; dx <= 5; ++dx) {
            const int px = static_cast<int>(std::lround(x)) + dx;
            const int py = static_cast<int>(std::lround(y)) + dy;
            const double d2 = (px - x) * (px - x) + (py - y) * (py - y);
            light.at<float>(py, (px + kGridWidth) % kGridWidth) +=
                static_cast<float>(250.0 * std::exp(-d2 / (2 * kSigma * kSigma)));
          }
        }
      }
    }
    cv::Mat grey;
    light.convertTo(grey, CV_8U);
    cv::cvtColor(grey, image_, cv::COLOR_GRAY2BGR);
  }

  const cv::Mat& image() const { return image_; }
  // Longitude (x) and latitude (y) of every marker, radians.
  const std::vector<cv::Point2d>& positions() const { return positions_; }

 private:
  cv::Mat image_;
  std::vector<cv::Point2d> positions_;
};

cv::Point2d centroidAround(const cv::Mat& grey, cv::Point cell) {
  double weight = 0.0;
  cv::Point2d sum(0.0, 0.0);
  const int w = MarkerScene::kWindow;
  for (int y = cell.y - w; y <= cell.y + w; ++y) {
    for (int x = cell.x - w; x <= cell.x + w; ++x) {
      const double value = grey.at<uchar>(y, x);
      weight += value;
      sum += value * cv::Point2d(x, y);
    }
  }
  return weight > 0.0 ? sum / weight : cv::Point2d(-1e9, -1e9);
}

class ProjectionRoundTripTest : public ::testing::TestWithParam<RigCamera> {};

TEST_P(ProjectionRoundTripTest, ProjectedShotsShowTheSceneAtTheHeadsLongitude) {
  const LibraryProjection library(GetParam());
  const cv::Mat scene = smoothScene();
  const cv::Mat seen = library.seenCells();
  for (int position = 0; position < 6; ++position) {
    const cv::Mat projected = library.project(renderShot(scene, library, position));
    const double matched = maskedPsnr(
        projected, projectedShotTruth(EquirectScene(scene), library.geometry(), position), seen);
    // The same comparison against the neighbouring head position, and against the truth moved by
    // half a grid cell, must be clearly worse: the measure tells a wrong turn or a shift apart.
    const double neighbour = maskedPsnr(
        projected, projectedShotTruth(EquirectScene(scene), library.geometry(), (position + 1) % 6),
        seen);
    const GridFrame grid(kGridWidth, kGridHeight);
    const double halfCell = 0.5 * kFullTurn / grid.scale;
    const double shifted =
        maskedPsnr(projected,
                   sceneOnGrid(EquirectScene(scene), kGridWidth, kGridHeight,
                               headAngle(position) + grid.tableLongitude(0) + halfCell),
                   seen);
    // Measured: 43 to 49 dB matched, 33 to 37 dB half a cell off, 15 to 18 dB one head turn off.
    EXPECT_GT(matched, 40.0) << "position " << position;
    EXPECT_LT(shifted, matched - 5.0) << "position " << position;
    EXPECT_LT(neighbour, 25.0) << "position " << position;
  }
}

TEST_P(ProjectionRoundTripTest, MarkersLandWithinAFractionOfACell) {
  const LibraryProjection library(GetParam());
  const MarkerScene markers;
  const cv::Mat seen = library.seenCells();
  cv::Mat inside;
  cv::erode(seen, inside, cv::Mat(), cv::Point(-1, -1), MarkerScene::kWindow + 2);
  const GridFrame grid(kGridWidth, kGridHeight);
  double sum = 0.0;
  double worst = 0.0;
  int found = 0;
  for (int position = 0; position < 6; ++position) {
    const cv::Mat projected = library.project(renderShot(markers.image(), library, position));
    cv::Mat grey;
    cv::cvtColor(projected, grey, cv::COLOR_BGR2GRAY);
    for (const cv::Point2d& marker : markers.positions()) {
      // The table's column of a longitude, turned back by the head's angle.
      double column = (marker.x - headAngle(position)) * grid.scale / kFullTurn + kGridWidth * 0.5;
      column -= std::floor(column / kGridWidth) * kGridWidth;
      const double row = (0.5 * CV_PI - marker.y) * kGridHeight / CV_PI;
      const cv::Point cell(static_cast<int>(std::lround(column)),
                           static_cast<int>(std::lround(row)));
      if (cell.x < MarkerScene::kWindow || cell.x >= kGridWidth - MarkerScene::kWindow ||
          inside.at<uchar>(cell) == 0) {
        continue;
      }
      const cv::Point2d centroid = centroidAround(grey, cell);
      const double error = cv::norm(centroid - cv::Point2d(column, row));
      sum += error;
      worst = std::max(worst, error);
      ++found;
    }
  }
  // Measured: mean 0.010 (Up) and 0.007 (Down) cells, worst 0.036 and 0.023, over 762 and 564
  // markers; a quarter-cell misplacement would be fifty times the floor's mean.
  ASSERT_GT(found, 400);
  EXPECT_LT(sum / found, 0.03);
  EXPECT_LT(worst, 0.1);
}

TEST_P(ProjectionRoundTripTest, BandsPlacedAsTheStitchDriverPlacesThemRebuildTheTruth) {
  // The driver starts band p with projected image p undisplaced: image p's columns from W / 2 on
  // fill panorama columns from p x W / 6 on. Laid out that way, without any flow or blending,
  // the projected shots must already show the panorama's ground truth.
  constexpr int kWidth = 384;  // a multiple of 6, so that bands are whole columns
  constexpr int kHeight = 192;
  const LibraryProjection library(GetParam(), kWidth, kHeight);
  cv::Mat scene = makeBuiltinScene(kWidth, kHeight);
  cv::GaussianBlur(scene, scene, cv::Size(), 1.0);
  cv::Mat panorama(kHeight, kWidth, CV_8UC3);
  cv::Mat seen(kHeight, kWidth, CV_8UC1);
  const cv::Mat seenCells = library.seenCells();
  const int band = kWidth / 6;
  for (int position = 0; position < 6; ++position) {
    const cv::Mat projected = library.project(renderShot(scene, library, position));
    const cv::Range from(kWidth / 2, kWidth / 2 + band);
    const cv::Range to(position * band, (position + 1) * band);
    projected.colRange(from).copyTo(panorama.colRange(to));
    seenCells.colRange(from).copyTo(seen.colRange(to));
  }
  const cv::Mat truth = panoramaTruth(EquirectScene(scene), kWidth, kHeight);
  // Measured: 44.8 dB (Up) and 47.3 dB (Down).
  EXPECT_GT(maskedPsnr(panorama, truth, seen), 40.0);
}

INSTANTIATE_TEST_SUITE_P(BothCameras, ProjectionRoundTripTest,
                         ::testing::Values(RigCamera::Up, RigCamera::Down),
                         [](const auto& info) { return cameraName(info.param); });

}  // namespace
}  // namespace velmora::sim
