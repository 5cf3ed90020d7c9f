// The video stitch: prepares a frame of the rig video and starts the external video stitcher.
#pragma once

#include <string>

#include "api/video_stitch_handle.h"

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
//      stores -1 in handle.code and ends the step silently;
//   2. places the frame's scene region on the upper camera's canvas;
//   3. reads the panorama (none when the path is empty or unreadable) and records its size as
//      the handle's panorama width and height (0 x 0 without one);
//   4. with a panorama: builds the upper camera model (size1 = first stored parameter, size2 =
//      second, grid = the panorama's size, lens 0) from the handle's configuration, loads or
//      builds tableDir + "/table_Up.bin", turns the canvas a quarter counter-clockwise, projects
//      it and composes it into a copy of the panorama (the copy is not kept);
//   5. stores 1.0 in *outA and 3.0 in *outB;
//   6. prints the stitcher banner and, holding the process-wide video-tool lock, runs
//      "zemu-ffmpeg-velmora" on the video with the fixed crop and the output's stem and
//      directory; prints "execute video stitch done" and the separator.
// handle.code is left untouched on success. Throws Failure (-1 through the export's guard) for
// null outA or outB (before anything runs), a frame smaller than 3814 x 2846, a canvas that does
// not fit the stored parameters, a table that can be neither loaded nor built, or a projected
// frame smaller than the panorama.
void executeVideoStitch(VideoStitchHandle& handle, const VideoStitchRequest& request);

}  // namespace velmora
