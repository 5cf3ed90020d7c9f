// Reading shots and writing panoramas so that a damaged input is noticed and a failed write never
// leaves a file that looks finished.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace velmora {

// Reads an image file as 8-bit BGR. Returns an empty Mat when the path is not a regular file, is
// unreadable, not an image, or a JPEG or PNG file whose image data ends early (a truncated
// transfer, which the decoders would otherwise fill with grey). Data after the image's end is
// ignored.
cv::Mat readColorImage(const std::string& path);

// Writes image to path in the format its extension names, with the encoder parameters given.
// The bytes go to a hidden temporary file beside path that is renamed into place, so path either
// holds the whole image or is left as it was. Throws Failure("Write image: <path> error.") when
// the image cannot be encoded or written.
void writeImage(const std::string& path, const cv::Mat& image, const std::vector<int>& params = {});

// Writes image to path as a JPEG of the given quality whatever the path's extension says, with
// the same all-or-nothing guarantee and failure as writeImage.
void writeJpeg(const std::string& path, const cv::Mat& image, int quality);

}  // namespace velmora
