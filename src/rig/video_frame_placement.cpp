#include "rig/video_frame_placement.h"

#include <string>

#include "common/status.h"

namespace velmora {

cv::Mat placeFrameOnCanvas(const cv::Mat& frame) {
  const cv::Point regionEnd = kFrameRegion.br();
  if (frame.type() != CV_8UC3 || frame.cols < regionEnd.x || frame.rows < regionEnd.y) {
    throw Failure("Video frame of " + std::to_string(frame.cols) + "x" +
                  std::to_string(frame.rows) + " is smaller than the " +
                  std::to_string(regionEnd.x) + "x" + std::to_string(regionEnd.y) +
                  " that holds the scene.");
  }
  cv::Mat canvas = cv::Mat::zeros(kCanvasSize, CV_8UC3);
  frame(kFrameRegion).copyTo(canvas(kCanvasRegion));
  return canvas;
}

}  // namespace velmora
