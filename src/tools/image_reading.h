// Reading images that an external program may or may not have produced.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace velmora {

// cv::imread(path, IMREAD_COLOR), except that a file that cannot be opened gives an empty image
// at once, without OpenCV's warning on standard error: a missing result is the caller's to
// report. A file that exists but does not decode also gives an empty image.
cv::Mat readColourImageIfPresent(const std::string& path);

}  // namespace velmora
