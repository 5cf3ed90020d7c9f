#include "velmora/report_images.h"

#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace velmora::tool {

namespace {

const cv::Scalar kUnseenGrey(48, 48, 48);

}  // namespace

cv::Mat errorHeatMap(const cv::Mat& panorama, const cv::Mat& truth, const cv::Mat& seen) {
  if (panorama.size() != truth.size() || seen.size() != truth.size() ||
      panorama.type() != CV_8UC3 || truth.type() != CV_8UC3) {
    throw std::invalid_argument("The panorama, its truth and its seen region do not match.");
  }
  cv::Mat difference;
  cv::absdiff(panorama, truth, difference);
  difference.convertTo(difference, CV_32F);
  cv::Mat error;
  cv::transform(difference, error, cv::Matx13f(1.0f, 1.0f, 1.0f) / 3.0f);
  cv::Mat levels;
  error.convertTo(levels, CV_8U, 255.0 / kHeatMapFullScale);
  cv::Mat heat;
  cv::applyColorMap(levels, heat, cv::COLORMAP_HOT);
  heat.setTo(kUnseenGrey, seen != 255);
  return heat;
}

cv::Mat thumbnailOf(const cv::Mat& image, int width) {
  if (image.cols <= width) return image.clone();
  cv::Mat thumbnail;
  const int height = std::max(1, image.rows * width / image.cols);
  cv::resize(image, thumbnail, cv::Size(width, height), 0.0, 0.0, cv::INTER_AREA);
  return thumbnail;
}

}  // namespace velmora::tool
