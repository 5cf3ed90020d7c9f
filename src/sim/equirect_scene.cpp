#include "sim/equirect_scene.h"

#include "common/status.h"

namespace velmora::sim {

EquirectScene::EquirectScene(const cv::Mat& image) : image_(image) {
  if (image.type() != CV_8UC3 || image.cols < 2 || image.rows < 2) {
    throw Failure("The scene must be an 8-bit colour image of at least 2x2 pixels.");
  }
}

}  // namespace velmora::sim
