// The image pyramid of the flow estimator: level 0 is the image itself, every further level is
// 0.88 times the size of the one before.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace velmora {

// Ratio between the sizes of two neighbouring pyramid levels (a 32-bit float).
constexpr float kPyramidScale = 0.88f;
// No level but level 0 is narrower or lower than this many pixels.
constexpr int kPyramidMinimumSide = 25;
// A pyramid never has more levels than this.
constexpr std::size_t kPyramidMaximumLevels = 100;

// The sizes of the levels of a pyramid over an image of `base` size, level 0 first. Each next
// level has height = trunc(height x 0.88 + 0.5) and width = trunc(width x 0.88 + 0.5); the list
// ends before the first size with a side below 25 and never holds more than 100 sizes. Level 0 is
// `base` whatever its size, so a base below 25 pixels gives one level.
std::vector<cv::Size> pyramidLevelSizes(cv::Size base);

// The pyramid of `image` (any type cv::resize takes): level 0 shares the data of `image`, each
// further level is the linear resize of the level before to the size pyramidLevelSizes gives.
std::vector<cv::Mat> buildPyramid(const cv::Mat& image);

}  // namespace velmora
