// The state behind the stitch handle: what Init recorded for each camera, the colour-step work
// that HDR stitches left pending, and the status code of the last operation.
#pragma once

#include <cstdint>
#include <string>

#include "rig/camera_setup.h"
#include "tools/pending_isp.h"

namespace velmora {

struct StitchHandle {
  std::string upConfigPath;
  std::string downConfigPath;
  std::string tableDir;
  // The Up pair is stored height first, the Down pair width first; every reader takes them in
  // that order (they become the camera model's size1 and size2).
  uint32_t upHeight = 0;
  uint32_t upWidth = 0;
  uint32_t downWidth = 0;
  uint32_t downHeight = 0;
  uint32_t upOutWidth = 0;
  uint32_t upOutHeight = 0;
  uint32_t downOutWidth = 0;
  uint32_t downOutHeight = 0;
  PendingIspTable pendingIsp;
  int32_t code = 0;

  // The camera as Init recorded it: its geometry, its configuration and its table in tableDir.
  CameraSetup camera(Camera which) const;
};

}  // namespace velmora
