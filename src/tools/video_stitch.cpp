#include "tools/video_stitch.h"

#include <mutex>
#include <opencv2/core.hpp>

#include "common/console.h"
#include "common/image_io.h"
#include "common/status.h"
#include "rig/camera_model.h"
#include "rig/projection.h"
#include "rig/table_cache.h"
#include "rig/video_composition.h"
#include "rig/video_frame_placement.h"
#include "tools/frame_grab.h"
#include "tools/process_runner.h"
#include "tools/video_stitcher_command.h"

namespace velmora {

namespace {

constexpr float kOutA = 1.0f;
constexpr float kOutB = 3.0f;
constexpr char kStitcherBanner[] = "===================zemu-ffmpeg===================";

// Serialises the runs of the external video stitcher across all handles and threads.
std::mutex& videoToolMutex() {
  static std::mutex mutex;
  return mutex;
}

void requireOutputs(const VideoStitchRequest& request) {
  if (request.outA == nullptr) throw Failure("Missing outA: null pointer.");
  if (request.outB == nullptr) throw Failure("Missing outB: null pointer.");
}

// The upper camera's view of the canvas on the panorama's grid.
cv::Mat projectCanvas(const CameraSetup& upper, cv::Size panorama, const cv::Mat& canvas) {
  CameraGeometry geometry = upper.geometry;
  geometry.outWidth = static_cast<uint32_t>(panorama.width);
  geometry.outHeight = static_cast<uint32_t>(panorama.height);
  CameraModel model(geometry);
  model.readConfiguration(upper.configPath);
  // The folder may be a stitch handle's, whose table is for another grid (the panorama without
  // its bands): it is used as it is and never replaced.
  ensureTableKeepingFile(model, upper.tablePath);
  cv::Mat turned;
  cv::rotate(canvas, turned, cv::ROTATE_90_COUNTERCLOCKWISE);
  return projectShot(turned, model.table(), geometry);
}

void runVideoStitcher(const VideoStitchRequest& request) {
  const std::string command =
      videoStitcherCommand(request.videoPath, splitOutputPath(request.outputPath));
  std::lock_guard<std::mutex> lock(videoToolMutex());
  runCommand(command);
}

}  // namespace

bool executeVideoStitch(const CameraSetup& upper, const VideoStitchRequest& request,
                        int32_t& panoramaWidth, int32_t& panoramaHeight) {
  console::out("execute video stitch start.");
  requireOutputs(request);
  // The paths themselves are not checked up front: a missing or unreadable video shows as a
  // frame that was not produced.
  const cv::Mat frame = grabVideoFrame(request.videoPath);
  if (frame.empty()) return false;
  const cv::Mat canvas = placeFrameOnCanvas(frame);

  const cv::Mat panorama =
      request.panoramaPath.empty() ? cv::Mat() : readColorImage(request.panoramaPath);
  panoramaWidth = panorama.cols;
  panoramaHeight = panorama.rows;
  // Without a panorama the composition field is empty: there is nothing to project for.
  if (!panorama.empty()) {
    composeProjectedFrame(panorama, projectCanvas(upper, panorama.size(), canvas));
  }

  *request.outA = kOutA;
  *request.outB = kOutB;

  console::out(kStitcherBanner);
  runVideoStitcher(request);
  console::out("execute video stitch done");
  console::out(console::kSeparator);
  return true;
}

}  // namespace velmora
