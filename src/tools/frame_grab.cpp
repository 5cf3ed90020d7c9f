#include "tools/frame_grab.h"

#include <cstdio>

#include "common/image_io.h"
#include "tools/process_runner.h"

namespace velmora {

std::string frameGrabCommand(const std::string& videoPath, char separator) {
  return toNativeSeparators("ffmpeg  -i " + videoPath + " -ss 1 -f image2  -vframes 1 " +
                                grabbedFramePath(videoPath) + " -y",
                            separator);
}

std::string grabbedFramePath(const std::string& videoPath) {
  return videoPath + ".jpg";
}

cv::Mat grabVideoFrame(const std::string& videoPath) {
  runCommand(frameGrabCommand(videoPath));
  const std::string framePath = grabbedFramePath(videoPath);
  cv::Mat frame = readColorImage(framePath);
  if (!frame.empty()) std::remove(toNativeSeparators(framePath).c_str());
  return frame;
}

}  // namespace velmora
