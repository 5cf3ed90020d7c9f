#include "flow/flow_test_images.h"

#include <opencv2/imgproc.hpp>

namespace velmora::testing {

cv::Mat texture(int width, int height, unsigned seed) {
  cv::RNG rng(seed);
  cv::Mat sum = cv::Mat::zeros(height, width, CV_32FC3);
  for (double sigma : {1.0, 2.5, 6.0, 14.0}) {
    cv::Mat noise(height, width, CV_32FC3);
    rng.fill(noise, cv::RNG::UNIFORM, 0.0, 1.0);
    cv::GaussianBlur(noise, noise, cv::Size(), sigma);
    cv::normalize(noise, noise, -1.0, 1.0, cv::NORM_MINMAX);
    sum += noise;
  }
  cv::Mat image;
  sum.convertTo(image, CV_8UC3, 255.0 / 8.0, 127.5);
  for (int i = 0; i < 6; ++i) {
    const cv::Point centre(rng.uniform(0, width), rng.uniform(0, height));
    const cv::Scalar colour(rng.uniform(0, 256), rng.uniform(0, 256), rng.uniform(0, 256));
    if (i % 2 == 0) {
      cv::circle(image, centre, rng.uniform(3, 1 + width / 8), colour, cv::FILLED);
    } else {
      cv::rectangle(image,
                    cv::Rect(centre.x, centre.y, rng.uniform(4, 1 + width / 6),
                             rng.uniform(4, 1 + height / 6)),
                    colour, cv::FILLED);
    }
  }
  return image;
}

cv::Mat shiftedWindow(const cv::Mat& source, int left, int top, int width, int height, float shiftX,
                      float shiftY) {
  const cv::Matx23d map(1, 0, left - shiftX, 0, 1, top - shiftY);
  cv::Mat window;
  cv::warpAffine(source, window, map, cv::Size(width, height),
                 cv::INTER_CUBIC | cv::WARP_INVERSE_MAP, cv::BORDER_REFLECT);
  return window;
}

cv::Mat withAlpha(const cv::Mat& bgr, int alpha) {
  cv::Mat bgra;
  cv::cvtColor(bgr, bgra, cv::COLOR_BGR2BGRA);
  std::vector<cv::Mat> channels;
  cv::split(bgra, channels);
  channels[3].setTo(alpha);
  cv::merge(channels, bgra);
  return bgra;
}

}  // namespace velmora::testing
