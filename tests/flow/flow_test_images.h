// Synthetic images for the flow engine's tests.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace velmora::testing {

// A BGR texture with structure at three scales, the same for the same seed.
inline cv::Mat texture(int width, int height, unsigned seed) {
  cv::RNG rng(seed);
  cv::Mat sum = cv::Mat::zeros(height, width, CV_32FC3), noise(height, width, CV_32FC3), image;
  for (double sigma : {1.0, 3.0, 9.0}) {
    rng.fill(noise, cv::RNG::UNIFORM, 0.0, 1.0);
    cv::GaussianBlur(noise, noise, cv::Size(), sigma);
    cv::normalize(noise, noise, -1.0, 1.0, cv::NORM_MINMAX);
    sum += noise;
  }
  sum.convertTo(image, CV_8UC3, 255.0 / 6.0, 127.5);
  return image;
}

// A width x height window of `source` whose pixel (x, y) shows source position
// (x + left - shiftX, y + top - shiftY), cubic: windows with shifts s and 0 differ by s.
inline cv::Mat shiftedWindow(const cv::Mat& source, int left, int top, int width, int height,
                             float shiftX, float shiftY) {
  cv::Mat window;
  cv::warpAffine(source, window, cv::Matx23d(1, 0, left - shiftX, 0, 1, top - shiftY),
                 cv::Size(width, height), cv::INTER_CUBIC | cv::WARP_INVERSE_MAP,
                 cv::BORDER_REFLECT);
  return window;
}

inline cv::Mat withAlpha(const cv::Mat& bgr) {  // opaque
  cv::Mat bgra;
  cv::cvtColor(bgr, bgra, cv::COLOR_BGR2BGRA);
  return bgra;
}

}  // namespace velmora::testing
