// Panorama repair: the bracketed shot set is stitched again and host-given rectangles are
// replaced by the single shot that covers their structure.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "common/status.h"
#include "fusion/bracket_front.h"
#include "rig/camera_setup.h"

namespace velmora {

struct RepairRequest {
  std::vector<std::string> shots;  // 18 slots, three exposures per head position
  std::string outputPath;
  // In the host's frame, whose top band of int(H x 0.12) rows the repair removes.
  std::vector<cv::Rect> rectangles;
  WhiteBalanceGains gains;
};

// Stitches the panorama from the fused shots of the `up` camera, then for every rectangle in the
// host's order finds the edges inside it, picks the sector whose head position covers them and
// pastes that shot's projected pixels over the edge box with a 50-pixel feathered border; later
// rectangles see earlier repairs. A rectangle whose structure lies outside its sector's span prints
// "<i>th ROI over cur sphere." and is skipped, as is one outside the panorama (with a line on
// standard error). The framed result goes through the colour script and is written to
// outputPath. An unreadable or wrongly sized shot prints its line and returns kStatusFailure;
// other failures throw, a camera that was never initialised included. Returns kStatusOk on
// success.
StatusCode executePanoRepair(const CameraSetup& up, const RepairRequest& request);

// The repair loop of executePanoRepair: `panorama` is the stitched panorama (8-bit BGR, no bands),
// `ring` the six projected shots (BGR or BGRA) in head-position order as the stitch left them, and
// the rectangles are in the host's frame, whose top band of `bandRows` rows is removed.
void repairRectangles(cv::Mat& panorama, const std::vector<cv::Mat>& ring,
                      const std::vector<cv::Rect>& hostRectangles, int bandRows);

// The projected shot of the sector's head position, moved round the panorama so that its content
// lies where the panorama shows the same scene: head position p's axis is at column p x W / 6.
cv::Mat sectorImage(const std::vector<cv::Mat>& projectedRing, int sector);

}  // namespace velmora
