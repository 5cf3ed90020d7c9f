// An equirectangular scene image read as a function of direction: column x is longitude
// 2 pi x / width, row y latitude pi / 2 - pi y / height (rig_frame.h), bilinear between pixels,
// wrapping around in longitude and held at the first and last rows towards the poles.
#pragma once

#include <opencv2/core.hpp>

#include "sim/rig_frame.h"

namespace velmora::sim {

class EquirectScene {
 public:
  // image: 8-bit, three channels, at least 2 x 2. Throws Failure otherwise. The image's pixels
  // are shared, not copied.
  explicit EquirectScene(const cv::Mat& image);

  // The colour (B, G, R as floats 0 to 255) at a longitude and latitude in radians.
  cv::Vec3f sample(double longitude, double latitude) const {
    double x = longitude * (image_.cols / kFullTurn);
    x -= std::floor(x / image_.cols) * image_.cols;
    double y = (0.5 * CV_PI - latitude) * (image_.rows / CV_PI);
    y = std::max(0.0, std::min(y, image_.rows - 1.0));
    return sampleAt(x, y);
  }

  cv::Vec3f sample(const cv::Vec3d& direction) const {
    return sample(longitudeOf(direction), latitudeOf(direction));
  }

  const cv::Mat& image() const { return image_; }

 private:
  // x in [0, cols), y in [0, rows - 1].
  cv::Vec3f sampleAt(double x, double y) const {
    int x0 = static_cast<int>(x);
    int y0 = static_cast<int>(y);
    if (x0 >= image_.cols) x0 = image_.cols - 1;
    if (y0 >= image_.rows - 1) y0 = image_.rows - 2;
    const float fx = static_cast<float>(x - x0);
    const float fy = static_cast<float>(y - y0);
    const int x1 = x0 + 1 == image_.cols ? 0 : x0 + 1;
    const uchar* row0 = image_.ptr<uchar>(y0);
    const uchar* row1 = image_.ptr<uchar>(y0 + 1);
    cv::Vec3f colour;
    for (int c = 0; c < 3; ++c) {
      const float top = row0[3 * x0 + c] + fx * (row0[3 * x1 + c] - row0[3 * x0 + c]);
      const float bottom = row1[3 * x0 + c] + fx * (row1[3 * x1 + c] - row1[3 * x0 + c]);
      colour[c] = top + fy * (bottom - top);
    }
    return colour;
  }

  cv::Mat image_;
};

}  // namespace velmora::sim
