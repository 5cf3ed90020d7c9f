// Where the useful region of a rig video frame lies, and the canvas the camera model expects it
// on.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// The region of a video frame that shows the scene: columns 184 to 3813, rows 176 to 2845.
inline const cv::Rect kFrameRegion(184, 176, 3630, 2670);
// Where that region lands on the canvas: columns 920 to 4549, rows 500 to 3169.
inline const cv::Rect kCanvasRegion(920, 500, 3630, 2670);
// The canvas: a shot of the upper camera, 5472 columns by 3648 rows.
inline const cv::Size kCanvasSize(5472, 3648);

// Returns a black 8-bit three-channel canvas of kCanvasSize with the frame's kFrameRegion copied
// to kCanvasRegion (canvas pixel (x, y) takes frame pixel (x - 736, y - 324)). The frame must be
// 8-bit three-channel and at least 3814 columns by 2846 rows; otherwise throws Failure naming
// its size.
cv::Mat placeFrameOnCanvas(const cv::Mat& frame);

}  // namespace velmora
