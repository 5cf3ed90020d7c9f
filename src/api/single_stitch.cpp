#include "api/single_stitch.h"

#include <opencv2/imgproc.hpp>

#include "api/camera_choice.h"
#include "common/black_bands.h"
#include "common/buffer_pool.h"
#include "common/console.h"
#include "common/image_io.h"
#include "common/parallel_items.h"
#include "common/status.h"
#include "flow/stitch_driver.h"
#include "fusion/white_balance.h"
#include "rig/ring_projection.h"

namespace velmora {

namespace {

constexpr int kShotsPerRing = 6;
constexpr float kHeadStepDegrees = 60.0f;

}  // namespace

void executeSingleStitch(StitchHandle& handle, const SingleStitchRequest& request) {
  console::out("Optical Flow Stitch start.");
  const auto camera = cameraFromConfigPath(request.configPath);
  if (camera) console::out(*camera == Camera::Up ? "Stitch up cameras." : "Stitch down cameras.");
  if (!camera) {
    console::err("Configure path:", request.configPath, " error.");
    handle.code = kStatusFailure;
    return;
  }
  if (request.imagePaths.size() != kShotsPerRing) {
    throw Failure("Expected six shot paths, got " + std::to_string(request.imagePaths.size()) +
                  ".");
  }
  const CameraSetup setup = handle.camera(*camera);
  requireInitialised(setup);
  const CameraGeometry& geometry = setup.geometry;
  const cv::Size shotSize = setup.shotSize();

  // The operation's large buffers go back to the pool for its later steps.
  const BufferPoolSession session;
  // Only the columns the stitch reads are projected.
  const cv::Range columnsRead =
      ringColumnsRead(static_cast<int>(geometry.outWidth), geometry.outWidth, kShotsPerRing);
  std::vector<cv::Mat> projected(request.imagePaths.size());
  {
    // The table is read while the shots are. Each shot is read, balanced and, once the table is
    // there, turned and projected on its own (several at a time), so that a shot's decoded and
    // turned images are freed for the next one to reuse. A shot that cannot be used is reported,
    // the first in path order, once all are back; a table that has to be computed is computed
    // only then.
    RingProjection projection(setup);
    std::vector<cv::Mat> shots(request.imagePaths.size());
    runForEachItem(shots.size(), [&](std::size_t i) {
      cv::Mat shot = readColorImage(request.imagePaths[i]);
      if (shot.empty() || shot.size() != shotSize) return;
      applyWhiteBalanceGains(shot, request.redGain, request.greenGain, request.blueGain);
      if (projection.tableRead(columnsRead)) {
        projected[i] = projection.projectShot(std::move(shot));
      } else {
        shots[i] = std::move(shot);
      }
    });
    for (std::size_t i = 0; i < shots.size(); ++i) {
      if (shots[i].empty() && projected[i].empty()) {
        console::err("Read imgPath: ", request.imagePaths[i], " error.");
        handle.code = kStatusFailure;
        return;
      }
    }
    if (!projection.tableRead(columnsRead)) {
      projected = projection.project(std::move(shots), columnsRead);
    }
  }  // the projection table is freed here, before the stitch

  // The driver writes the stitched image straight between the two black bands of the framed
  // image, instead of into an image of its own that the bands would then be stacked around.
  const int bandRows = blackBandRows(geometry.outHeight);
  const cv::Size stitchedSize = projected[0].size();
  cv::Mat framed(stitchedSize.height + 2 * bandRows, stitchedSize.width, CV_8UC3);
  cv::Mat stitched = framed.rowRange(bandRows, bandRows + stitchedSize.height);
  stitchRing(stitched, projected, kHeadStepDegrees, kShotsPerRing,
             static_cast<unsigned>(stitchedSize.width), static_cast<unsigned>(stitchedSize.height),
             UnreadColumns::kAsGiven);
  projected.clear();
  if (stitched.data == framed.ptr(bandRows) &&
      stitchedSize.width == static_cast<int>(geometry.outWidth)) {
    framed.rowRange(0, bandRows).setTo(cv::Scalar::all(0));
    framed.rowRange(bandRows + stitchedSize.height, framed.rows).setTo(cv::Scalar::all(0));
  } else {
    framed = addBlackBands(stitched, bandRows, static_cast<int>(geometry.outWidth));
  }

  // A resize to the framed image's own size would copy it: then it is written as it is.
  const cv::Size gridSize(static_cast<int>(geometry.outWidth),
                          static_cast<int>(geometry.outHeight));
  cv::Mat panorama = framed;
  if (framed.size() != gridSize) {
    cv::resize(framed, panorama, gridSize, 0.0, 0.0, cv::INTER_LINEAR);
  }
  writeImage(request.outputPath, panorama);

  console::out("Optical flow stitch finished.");
  console::out(console::kSeparator);
  handle.code = kStatusOk;
}

}  // namespace velmora
