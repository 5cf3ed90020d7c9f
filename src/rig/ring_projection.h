// Projection of one camera's ring of six shots onto its panorama grid.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "rig/camera_setup.h"

namespace velmora {

// Projects the shots of the camera with its table, loaded from the setup's table path or computed
// and written there. Up shots are turned a quarter counter-clockwise first, so that their columns
// run along the camera's stored height. Throws Failure when the camera was never initialised, its
// table cannot be had, or a shot does not fit the camera.
std::vector<cv::Mat> projectRing(const CameraSetup& camera, std::vector<cv::Mat> shots);

}  // namespace velmora
