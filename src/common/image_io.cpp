#include "common/image_io.h"

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>

#include "common/atomic_file.h"
#include "common/buffer_pool.h"
#include "common/image_completeness.h"
#include "common/status.h"

namespace velmora {

cv::Mat readColorImage(const std::string& path) {
  // The whole file in one read; anything but a regular file (a directory, a device) or a file
  // that shrinks while it is read gives no image.
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return cv::Mat();
  std::vector<uchar> bytes;
  {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) return cv::Mat();
    const std::streamoff size = in.tellg();
    if (size < 4) return cv::Mat();
    bytes.resize(static_cast<size_t>(size));
    in.seekg(0);
    in.read(reinterpret_cast<char*>(bytes.data()), size);
    if (in.gcount() != size) return cv::Mat();
  }
  if (!imageDataIsComplete(bytes)) return cv::Mat();
  try {
    // Decoded into a pooled image: while an operation runs, a freed shot's buffer takes the next.
    cv::Mat image = pooledMat();
    return cv::imdecode(bytes, cv::IMREAD_COLOR, &image);
  } catch (const cv::Exception&) {
    return cv::Mat();
  }
}

void writeImage(const std::string& path, const cv::Mat& image, const std::vector<int>& params) {
  const std::string temporary = temporarySiblingOf(path);
  bool written = false;
  try {
    written = !image.empty() && cv::imwrite(temporary, image, params);
  } catch (const cv::Exception&) {
    written = false;
  }
  if (!commitTemporaryFile(temporary, path, written)) {
    throw Failure("Write image: " + path + " error.");
  }
}

void writeJpeg(const std::string& path, const cv::Mat& image, int quality) {
  std::vector<uchar> bytes;
  try {
    if (image.empty() || !cv::imencode(".jpg", image, bytes, {cv::IMWRITE_JPEG_QUALITY, quality})) {
      throw Failure("Write image: " + path + " error.");
    }
  } catch (const cv::Exception&) {
    throw Failure("Write image: " + path + " error.");
  }
  if (!writeFileAtomically(path, bytes.data(), bytes.size())) {
    throw Failure("Write image: " + path + " error.");
  }
}

}  // namespace velmora
