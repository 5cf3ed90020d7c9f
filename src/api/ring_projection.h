// Projection of one camera's ring of six shots onto its panorama grid.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "api/stitch_handle.h"

namespace velmora {

// Throws Failure naming the Init call when `camera` was never initialised on the handle.
void requireInitialised(const StitchHandle& handle, Camera camera);

// Projects the shots of `camera` with its table, loaded from the handle's table directory or
// computed and written there. Up shots are turned a quarter counter-clockwise first, so that
// their columns run along the camera's stored height. Throws Failure when the camera was never
// initialised, its table cannot be had, or a shot does not fit the camera.
std::vector<cv::Mat> projectRing(const StitchHandle& handle, Camera camera,
                                 std::vector<cv::Mat> shots);

}  // namespace velmora
