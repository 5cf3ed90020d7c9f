// The single-exposure stitch: six shots of one camera become its framed panorama file.
#pragma once

#include <string>
#include <vector>

#include "api/stitch_handle.h"

namespace velmora {

struct SingleStitchRequest {
  std::string configPath;
  std::vector<std::string> imagePaths;  // six shots in shooting order
  std::string outputPath;
  float redGain = 1.0f;
  float greenGain = 1.0f;
  float blueGain = 1.0f;
};

// Chooses the camera from the configuration path, checks every shot against the size Init
// recorded for it, turns Up shots a quarter counter-clockwise, applies the gains, projects the
// shots through the camera's table (loaded or built), stitches the ring, frames it with the
// polar bands, resizes it to the camera's grid and writes it. Detected failures (unknown camera,
// an unreadable or wrongly sized shot) print their line and store -1 before anything is written;
// a camera that was never initialised and a failed write throw Failure. Stores 0 on success.
void executeSingleStitch(StitchHandle& handle, const SingleStitchRequest& request);

}  // namespace velmora
