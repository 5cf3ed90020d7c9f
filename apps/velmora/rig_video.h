// A simulated rig video: what the rig's video camera records, as the library's video steps read
// it. The video camera sees the scene region that the upper camera's shot holds at column 736,
// row 324, 4000 x 3000 pixels; the HDR stitch's video variant finds the video beside shot 16.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace velmora::tool {

// The upper camera's shot region that a video frame shows.
inline const cv::Rect kVideoFrameRegion(736, 324, 4000, 3000);

// Writes a two-second clip at two frames a second with ffmpeg (found on PATH), every frame the
// kVideoFrameRegion of `shot` (8-bit BGR) in the video camera's brighter tone rendition
// (gamma 0.8). Throws std::runtime_error when the shot is smaller than 4736 x 3324 or ffmpeg
// leaves no video; a frame file written on the way is removed on every path.
void writeRigVideo(const cv::Mat& shot, const std::string& videoPath);

}  // namespace velmora::tool
