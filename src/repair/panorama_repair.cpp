#include "repair/panorama_repair.h"

#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "common/black_bands.h"
#include "common/console.h"
#include "common/feathered_rectangle.h"
#include "common/image_io.h"
#include "common/status.h"
#include "flow/stitch_driver.h"
#include "repair/edge_box.h"
#include "repair/panorama_sector.h"
#include "rig/ring_projection.h"
#include "tools/isp_script.h"

namespace velmora {

namespace {

constexpr float kHeadStepDegrees = 60.0f;
constexpr int kRepairExposures = 3;
// Pixels a structure's box is widened by before the span test, and the feather of the paste.
constexpr int kRepairMargin = 50;

// Moves every column c of image to (c + shift) mod width.
cv::Mat shiftColumnsCircularly(const cv::Mat& image, int shift) {
  const int width = image.cols;
  shift = ((shift % width) + width) % width;
  if (shift == 0) return image.clone();
  cv::Mat shifted(image.size(), image.type());
  image.colRange(0, width - shift).copyTo(shifted.colRange(shift, width));
  image.colRange(width - shift, width).copyTo(shifted.colRange(0, shift));
  return shifted;
}

// The host's rectangle without the top band, when it lies inside the panorama. Checked in 64
// bits: hosts may hand any 32-bit values.
bool rectangleInPanorama(const cv::Rect& host, int bandRows, cv::Size panorama, cv::Rect* inside) {
  const int64_t left = host.x;
  const int64_t top = int64_t{host.y} - bandRows;
  if (left < 0 || top < 0 || host.width <= 0 || host.height <= 0 ||
      left + host.width > panorama.width || top + host.height > panorama.height) {
    return false;
  }
  *inside = cv::Rect(host.x, static_cast<int>(top), host.width, host.height);
  return true;
}

void repairRectangle(cv::Mat& panorama, const std::vector<cv::Mat>& ring, int index,
                     const cv::Rect& rectangle) {
  const int sector = sectorOfColumn(rectangle.x + rectangle.width / 2, panorama.cols);
  const FeatherBox box = edgeBoundingBox(panorama, rectangle);
  if (!sectorAccepts(panorama.cols, sector, box.left - kRepairMargin, box.right + kRepairMargin)) {
    console::out(index, "th ROI over cur sphere.");
    return;
  }
  cv::Mat source = sectorImage(ring, sector);
  if (source.channels() == 4) cv::cvtColor(source, source, cv::COLOR_BGRA2BGR);
  blendFeathered(panorama, source, box, kRepairMargin,
                 cv::Rect(0, 0, panorama.cols, panorama.rows));
}

}  // namespace

cv::Mat sectorImage(const std::vector<cv::Mat>& projectedRing, int sector) {
  const int position = headPositionOfSector(sector);
  const cv::Mat& image = projectedRing.at(position);
  return shiftColumnsCircularly(image, (position - 3) * image.cols / 6);
}

void repairRectangles(cv::Mat& panorama, const std::vector<cv::Mat>& ring,
                      const std::vector<cv::Rect>& hostRectangles, int bandRows) {
  for (size_t i = 0; i < hostRectangles.size(); ++i) {
    cv::Rect rectangle;
    if (!rectangleInPanorama(hostRectangles[i], bandRows, panorama.size(), &rectangle)) {
      console::err(i, "th ROI outside the panorama.");
      continue;
    }
    repairRectangle(panorama, ring, static_cast<int>(i), rectangle);
  }
}

StatusCode executePanoRepair(const CameraSetup& up, const RepairRequest& request) {
  console::out("Optical Flow Stitch start.");
  requireInitialised(up);
  std::vector<cv::Mat> decoded;
  if (!checkBracketShots(up.shotSize(), request.shots, kRepairExposures, &decoded)) {
    return kStatusFailure;
  }
  std::vector<cv::Mat> ring = projectRing(
      up, fuseBrackets(request.shots, kRepairExposures, request.gains, std::move(decoded)));
  cv::Mat panorama;
  stitchRing(panorama, ring, kHeadStepDegrees, kHeadPositions, static_cast<unsigned>(ring[0].cols),
             static_cast<unsigned>(ring[0].rows));

  const int bandRows = blackBandRows(up.geometry.outHeight);
  repairRectangles(panorama, ring, request.rectangles, bandRows);
  const cv::Mat framed = addBlackBands(panorama, bandRows, static_cast<int>(up.geometry.outWidth));

  console::out(console::kIspSection);
  const std::string intermediate = request.outputPath + ".jpg";
  writeImage(intermediate, framed);
  runIspScript(request.outputPath, intermediate);
  const cv::Mat processed = readColorImage(request.outputPath);
  if (processed.empty()) throw Failure("Read ISP result: " + request.outputPath + " error.");
  writeImage(request.outputPath, processed);

  console::out("Optical flow stitch finished.");
  console::out(console::kSeparator);
  return kStatusOk;
}

}  // namespace velmora
