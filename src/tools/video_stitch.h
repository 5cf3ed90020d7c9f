// The video stitch: prepares a frame of the rig video and starts the external video stitcher.
#pragma once

#include <cstdint>
#include <string>

#include "rig/camera_setup.h"

namespace velmora {

struct VideoStitchRequest {
  std::string panoramaPath;  // may be empty: the step then works without a panorama
  std::string videoPath;
  std::string outputPath;  // only its directory and stem are used
  float* outA = nullptr;
  float* outB = nullptr;
};

// Runs the video stitch on the caller's thread, relative to the current directory:
//   1. grabs the frame one second into the video (ffmpeg) and deletes the frame file; no frame
//      returns false at once, silently;
//   2. places the frame's scene region on the upper camera's canvas;
//   3. reads the panorama (none when the path is empty or unreadable) and records its size in
//      panoramaWidth and panoramaHeight (0 x 0 without one);
//   4. with a panorama: builds the upper camera model from `upper`'s geometry with the
//      panorama's size as its grid and `upper`'s configuration, uses `upper`'s table as it finds it
//      or builds it when there is none, turns the canvas a quarter counter-clockwise, projects it
//      and composes it into a copy of the panorama (the copy is not kept);
//   5. stores 1.0 in *outA and 3.0 in *outB;
//   6. prints the stitcher banner and, holding the process-wide video-tool lock, runs
//      "zemu-ffmpeg-velmora" on the video with the fixed crop and the output's stem and
//      directory; prints "execute video stitch done" and the separator, and returns true.
// Throws Failure (-1 through the export's guard) for null outA or outB (before anything runs), a
// frame smaller than 3814 x 2846, a canvas that does not fit `upper`'s sizes, a table that can be
// neither loaded nor built, or a projected frame smaller than the panorama.
bool executeVideoStitch(const CameraSetup& upper, const VideoStitchRequest& request,
                        int32_t& panoramaWidth, int32_t& panoramaHeight);

}  // namespace velmora
