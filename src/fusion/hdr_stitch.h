// The HDR stitch: bracketed shots of the upper camera become one fused panorama, left for the
// colour step (or, with the video flag, finished at once with the lower camera's view
// composited into it).
#pragma once

#include <string>
#include <vector>

#include "api/stitch_handle.h"
#include "fusion/bracket_front.h"

namespace velmora {

struct HdrStitchRequest {
  std::vector<std::string> shots;  // 18 slots: exposure e of position p at p x 3 + e
  std::string outputPath;
  bool withVideo = false;
  WhiteBalanceGains gains;
  int exposureCount = 3;
};

// Without the video flag writes the panorama to outputPath + ".jpg" and records
// (outputPath -> outputPath + ".jpg") as pending for the colour step. With it, stitches the
// lower camera with the upper camera's flow fields, matches its tones to a frame of the rig's
// video, runs the colour step and writes the composite to outputPath as JPEG quality 85.
// Detected failures print their line and store -1 (an unreadable or wrongly sized shot; an
// unreadable video frame); other failures throw. Stores 0 on success.
void executeHdrStitch(StitchHandle& handle, HdrStitchRequest request);

// The rig video beside a shot: the shot's directory, "/", the first 14 characters of its file
// name and ".mp4" ("." is the directory of a name without "/").
std::string videoPathForShot(const std::string& shotPath);

}  // namespace velmora
