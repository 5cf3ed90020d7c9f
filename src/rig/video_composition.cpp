#include "rig/video_composition.h"

#include <string>

#include "common/status.h"

namespace velmora {

cv::Rect compositionRectangle(int width, int height) {
  const float w = static_cast<float>(width);
  const float h = static_cast<float>(height);
  return cv::Rect(static_cast<int>(w * 0.42777777f), static_cast<int>(h * 0.2888889f),
                  static_cast<int>(w * 0.1388889f), static_cast<int>(h * 0.41666666f));
}

cv::Mat composeProjectedFrame(const cv::Mat& panorama, const cv::Mat& projected) {
  if (panorama.empty()) return cv::Mat();
  if (panorama.type() != CV_8UC3 || projected.type() != CV_8UC3 || projected.cols < panorama.cols ||
      projected.rows < panorama.rows) {
    throw Failure("Video stitch: the projected frame of " + std::to_string(projected.cols) + "x" +
                  std::to_string(projected.rows) + " does not cover the panorama of " +
                  std::to_string(panorama.cols) + "x" + std::to_string(panorama.rows) + ".");
  }
  cv::Mat composed = panorama.clone();
  const cv::Rect field = compositionRectangle(panorama.cols, panorama.rows);
  projected(field).copyTo(composed(field));
  return composed;
}

}  // namespace velmora
