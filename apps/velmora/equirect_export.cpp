#include "velmora/equirect_export.h"

#include <algorithm>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "sim/ground_truth.h"
#include "velmora/gpano_metadata.h"

namespace velmora::tool {

namespace {

bool isJpegName(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".jpg" || extension == ".jpeg";
}

}  // namespace

double SphereWindow::centreLongitudeDegrees() const {
  return 360.0 * (fullWidth * 0.5 - left) / fullWidth;
}

SphereWindow sphereWindowOfGrid(int gridWidth, int gridHeight) {
  if (gridWidth <= 0 || gridHeight <= 0) {
    throw std::invalid_argument("A panorama grid needs a positive width and height.");
  }
  SphereWindow window;
  window.fullWidth = std::max(gridWidth, gridHeight);
  window.fullHeight = std::max(window.fullWidth / 2, 1);
  window.width = std::min(gridWidth, window.fullWidth);
  window.height = std::min(gridHeight, window.fullHeight);
  window.left = (window.fullWidth - window.width) / 2;
  window.top = (window.fullHeight - window.height) / 2;
  window.gridTop = (gridHeight - window.height) / 2;
  return window;
}

cv::Mat unframePanorama(const cv::Mat& framed) {
  if (framed.empty()) throw std::invalid_argument("Cannot unframe an empty image.");
  const int rows = framed.rows;
  const int band = sim::frameBandRows(rows);
  // The library resized band + grid + band (rows + 2 band rows) to `rows` rows, so grid row r
  // sits at framed row (r + band + 0.5) x rows / (rows + 2 band) - 0.5.
  const float squeeze = static_cast<float>(rows) / static_cast<float>(rows + 2 * band);
  cv::Mat mapX(rows, framed.cols, CV_32F);
  cv::Mat mapY(rows, framed.cols, CV_32F);
  for (int r = 0; r < rows; ++r) {
    float* xs = mapX.ptr<float>(r);
    float* ys = mapY.ptr<float>(r);
    const float y = (static_cast<float>(r + band) + 0.5f) * squeeze - 0.5f;
    for (int c = 0; c < framed.cols; ++c) {
      xs[c] = static_cast<float>(c);
      ys[c] = y;
    }
  }
  cv::Mat grid;
  cv::remap(framed, grid, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  return grid;
}

cv::Mat viewerReadyPanorama(const cv::Mat& framed) {
  const SphereWindow window = sphereWindowOfGrid(framed.cols, framed.rows);
  return unframePanorama(framed).rowRange(window.gridTop, window.gridTop + window.height).clone();
}

SphereWindow exportViewerReady(const std::string& framedPath, const std::string& outputPath,
                               const ViewerReadyDetails& details) {
  if (!isJpegName(outputPath)) {
    throw std::runtime_error("The viewer-ready panorama " + outputPath +
                             " must be a JPEG file (.jpg or .jpeg).");
  }
  const cv::Mat framed = cv::imread(framedPath, cv::IMREAD_COLOR);
  if (framed.empty()) throw std::runtime_error("Cannot read the panorama " + framedPath + ".");
  const SphereWindow window = sphereWindowOfGrid(framed.cols, framed.rows);
  if (!cv::imwrite(outputPath, viewerReadyPanorama(framed))) {
    std::filesystem::remove(outputPath);
    throw std::runtime_error("Cannot write " + outputPath + ".");
  }
  try {
    writePhotoSphereMetadata(outputPath, window, details);
  } catch (...) {
    std::filesystem::remove(outputPath);
    throw;
  }
  return window;
}

std::string viewerReadyPathBeside(const std::string& panoramaPath) {
  std::filesystem::path path(panoramaPath);
  return (path.parent_path() / (path.stem().string() + "_360.jpg")).string();
}

}  // namespace velmora::tool
