// Grabbing one still frame of a rig video with ffmpeg, one second into the video.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "tools/path_separators.h"

namespace velmora {

// "ffmpeg  -i <video> -ss 1 -f image2  -vframes 1 <video>.jpg -y" (two blanks after "ffmpeg" and
// after "image2"; paths unquoted) with every "/" replaced by `separator`.
std::string frameGrabCommand(const std::string& videoPath, char separator = kNativeSeparator);

// The file the frame grab writes: videoPath + ".jpg", next to the video.
std::string grabbedFramePath(const std::string& videoPath);

// Runs the frame grab (ffmpeg found through the command search path), reads the frame in colour
// and deletes the frame file. Returns an empty image, with no message, when no frame was
// produced (ffmpeg missing, unreadable video, video shorter than one second).
cv::Mat grabVideoFrame(const std::string& videoPath);

}  // namespace velmora
