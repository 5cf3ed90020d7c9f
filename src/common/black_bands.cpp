#include "common/black_bands.h"

#include <string>

#include "common/status.h"

namespace velmora {

int blackBandRows(uint32_t panoramaHeight) {
  return static_cast<int>(static_cast<float>(panoramaHeight) * 0.12f);
}

cv::Mat addBlackBands(const cv::Mat& image, int bandRows, int panoramaWidth) {
  if (image.type() != CV_8UC3 || image.cols != panoramaWidth || bandRows < 0) {
    throw Failure("Black bands: an image of " + std::to_string(image.cols) +
                  " columns does not fit the panorama width " + std::to_string(panoramaWidth) +
                  ".");
  }
  cv::Mat framed = cv::Mat::zeros(image.rows + 2 * bandRows, image.cols, CV_8UC3);
  image.copyTo(framed.rowRange(bandRows, bandRows + image.rows));
  return framed;
}

}  // namespace velmora
