#include "repair/edge_box.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace velmora {

FeatherBox edgeBoundingBox(const cv::Mat& panorama, const cv::Rect& rectangle) {
  cv::Mat grey;
  cv::cvtColor(panorama(rectangle), grey, cv::COLOR_BGR2GRAY);
  cv::blur(grey, grey, cv::Size(3, 3), cv::Point(-1, -1));
  cv::Mat edges;
  cv::Canny(grey, edges, 30, 20, 3, false);

  FeatherBox box{20000, 10000, -1, -1};
  for (int y = 0; y < edges.rows; ++y) {
    const uchar* row = edges.ptr<uchar>(y);
    for (int x = 0; x < edges.cols; ++x) {
      if (row[x] == 0) continue;
      box.left = std::min(box.left, x);
      box.right = std::max(box.right, x);
      box.top = std::min(box.top, y);
      box.bottom = std::max(box.bottom, y);
    }
  }
  box.left += rectangle.x;
  box.right += rectangle.x;
  box.top += rectangle.y;
  box.bottom += rectangle.y;
  return box;
}

}  // namespace velmora
