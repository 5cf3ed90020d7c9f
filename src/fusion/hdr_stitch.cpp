#include "fusion/hdr_stitch.h"

#include <opencv2/imgproc.hpp>

#include "common/black_bands.h"
#include "common/buffer_pool.h"
#include "common/console.h"
#include "common/image_io.h"
#include "common/saturation.h"
#include "common/status.h"
#include "flow/stitch_driver.h"
#include "fusion/tone_match.h"
#include "fusion/video_composite.h"
#include "fusion/white_balance.h"
#include "rig/rig_video_path.h"
#include "rig/ring_projection.h"
#include "tools/frame_grab.h"
#include "tools/isp_script.h"

namespace velmora {

namespace {

constexpr float kHeadStepDegrees = 60.0f;
// The slot of the shot whose middle part is the tone source of the video variant (position 5,
// exposure 1), and that part.
constexpr int kToneSourceSlot = 16;
const cv::Rect kToneSourceRegion(736, 324, 4000, 3000);
constexpr int kFinalJpegQuality = 85;

struct Panoramas {
  cv::Mat upper;
  cv::Mat lower;
};

// Reads the middle exposure of every position as the lower camera's shots, with the gains.
std::vector<cv::Mat> readLowerShots(const std::vector<std::string>& shots,
                                    const WhiteBalanceGains& gains) {
  std::vector<cv::Mat> lower;
  for (int p = 0; p < kHeadPositions; ++p) {
    const std::string& path = shots[p * kSlotsPerPosition + 1];
    cv::Mat shot = readColorImage(path);
    if (shot.empty()) throw Failure("Read imgPath: " + path + " error.");
    applyWhiteBalanceGains(shot, gains.red, gains.green, gains.blue);
    lower.push_back(std::move(shot));
  }
  return lower;
}

cv::Mat toneSourceOf(const std::string& shotPath) {
  const cv::Mat shot = readColorImage(shotPath);
  if ((kToneSourceRegion & cv::Rect(0, 0, shot.cols, shot.rows)) != kToneSourceRegion) {
    throw Failure("Tone source: " + shotPath + " is smaller than 4736x3324.");
  }
  return shot(kToneSourceRegion).clone();
}

// The colour step of the upper panorama and the composite of the lower view into it.
void finishWithVideo(const CameraGeometry& up, const Panoramas& panoramas,
                     const std::string& outputPath) {
  const int width = static_cast<int>(up.outWidth);
  const int height = static_cast<int>(up.outHeight);
  const int bandRows = blackBandRows(up.outHeight);

  const console::Stopwatch ispClock;
  installIspProfile(measureSaturation(panoramas.upper));
  console::out(console::kIspSection);
  const std::string intermediate = outputPath + ".jpg";
  writeImage(intermediate, panoramas.upper);
  runIspScript(outputPath, intermediate);
  const cv::Mat processed = readColorImage(outputPath);
  if (processed.empty()) throw Failure("Read ISP result: " + outputPath + " error.");

  const cv::Mat upper = addBlackBands(processed, bandRows, width);
  console::printDuration("ISP spend time : ", ispClock);
  const cv::Mat lower = addBlackBands(panoramas.lower, bandRows, width);
  if (upper.size() != lower.size()) {
    throw Failure("ISP result: " + outputPath + " does not have the panorama's size.");
  }
  writeJpeg(outputPath, compositeLowerView(upper, lower, width, height), kFinalJpegQuality);
}

}  // namespace

StatusCode executeHdrStitch(const CameraSetup& up, const CameraSetup& down,
                            HdrStitchRequest request, PendingIspTable& pending) {
  console::Stopwatch clock;
  console::out("Optical Flow Stitch start.");
  WhiteBalanceGains& gains = request.gains;
  limitWhiteBalanceGains(gains.red, gains.green, gains.blue);

  requireInitialised(up);
  if (request.withVideo) requireInitialised(down);
  // The operation's large buffers go back to the pool for its later steps.
  const BufferPoolSession session;
  std::vector<cv::Mat> decoded;
  if (!checkBracketShots(up.shotSize(), request.shots, request.exposureCount, &decoded)) {
    return kStatusFailure;
  }
  std::vector<cv::Mat> fused =
      fuseBrackets(request.shots, request.exposureCount, gains, std::move(decoded));

  // Only the columns the stitch reads are projected.
  const cv::Range columnsRead =
      ringColumnsRead(static_cast<int>(up.geometry.outWidth), up.geometry.outWidth, kHeadPositions);
  std::vector<cv::Mat> upperRing = projectRing(up, std::move(fused), columnsRead);
  std::vector<cv::Mat> lowerRing;
  if (request.withVideo) {
    lowerRing = projectRing(down, readLowerShots(request.shots, gains), columnsRead);
    if (lowerRing[0].size() != upperRing[0].size()) {
      throw Failure("The video variant needs equal panorama grids for both cameras.");
    }
  }
  console::printDuration(" HDR spend time : ", clock);
  clock.restart();

  const auto frameWidth = static_cast<unsigned>(upperRing[0].cols);
  const auto frameHeight = static_cast<unsigned>(upperRing[0].rows);
  Panoramas panoramas;
  if (!request.withVideo) {
    stitchRing(panoramas.upper, upperRing, kHeadStepDegrees, kHeadPositions, frameWidth,
               frameHeight, UnreadColumns::kAsGiven);
  } else {
    stitchTwoRings(panoramas.upper, upperRing, panoramas.lower, lowerRing, kHeadStepDegrees,
                   kHeadPositions, frameWidth, frameHeight, UnreadColumns::kAsGiven);
    upperRing.clear();
    lowerRing.clear();
    const std::string& toneShot = request.shots[kToneSourceSlot];
    const cv::Mat toneSource = toneSourceOf(toneShot);
    const std::string videoPath = videoPathForShot(toneShot);
    const cv::Mat frame = grabVideoFrame(videoPath);
    if (frame.empty()) {
      console::err("Read video frame: ", videoPath, ".jpg error.");
      return kStatusFailure;
    }
    matchToneToReference(toneSource, frame, panoramas.lower);
  }
  console::printDuration("Optical flow stitch spend time : ", clock);

  if (!request.withVideo) {
    const std::string intermediate = request.outputPath + ".jpg";
    writeImage(intermediate, panoramas.upper);
    pending.insert({request.outputPath, intermediate});
  } else {
    finishWithVideo(up.geometry, panoramas, request.outputPath);
  }
  console::out("Optical flow stitch finished.");
  console::out(console::kSeparator);
  return kStatusOk;
}

}  // namespace velmora
