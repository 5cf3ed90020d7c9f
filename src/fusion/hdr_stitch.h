// The HDR stitch: bracketed shots of the upper camera become one fused panorama, left for the
// colour step (or, with the video flag, finished at once with the lower camera's view
// composited into it).
#pragma once

#include <string>
#include <vector>

#include "common/status.h"
#include "fusion/bracket_front.h"
#include "rig/camera_setup.h"
#include "tools/pending_isp.h"

namespace velmora {

struct HdrStitchRequest {
  std::vector<std::string> shots;  // 18 slots: exposure e of position p at p x 3 + e
  std::string outputPath;
  bool withVideo = false;
  WhiteBalanceGains gains;
  int exposureCount = 3;
};

// Stitches the bracketed shots of the `up` camera. Without the video flag writes the panorama to
// outputPath + ".jpg" and records (outputPath -> outputPath + ".jpg") in `pending` for the
// colour step. With it, stitches the `down` camera with the upper camera's flow fields, matches
// its tones to a frame of the rig's video, runs the colour step and writes the composite to
// outputPath as JPEG quality 85. Detected failures print their line and return kStatusFailure
// (an unreadable or wrongly sized shot; an unreadable video frame); other failures throw, a
// camera that was never initialised included. Returns kStatusOk on success.
StatusCode executeHdrStitch(const CameraSetup& up, const CameraSetup& down,
                            HdrStitchRequest request, PendingIspTable& pending);

}  // namespace velmora
