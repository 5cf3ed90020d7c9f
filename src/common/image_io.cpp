#include "common/image_io.h"

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>

#include "api/status.h"
#include "common/atomic_file.h"

namespace velmora {

namespace {

bool startsWith(const std::vector<uchar>& bytes, std::initializer_list<uchar> prefix) {
  return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

// JPEG ends with the EOI marker FF D9 (some writers append a few padding bytes after it).
bool jpegIsComplete(const std::vector<uchar>& bytes) {
  constexpr size_t kTrailingSlack = 64;
  const size_t searchFrom =
      bytes.size() > kTrailingSlack + 2 ? bytes.size() - kTrailingSlack - 2 : 0;
  for (size_t i = bytes.size() - 1; i > searchFrom; --i) {
    if (bytes[i - 1] == 0xFF && bytes[i] == 0xD9) return true;
  }
  return false;
}

// PNG ends with the IEND chunk: "IEND" and its four CRC bytes.
bool pngIsComplete(const std::vector<uchar>& bytes) {
  static const char kEnd[] = "IEND";
  return bytes.size() >= 12 &&
         std::equal(kEnd, kEnd + 4, bytes.end() - 8, [](char a, uchar b) { return uchar(a) == b; });
}

}  // namespace

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
  if (startsWith(bytes, {0xFF, 0xD8}) && !jpegIsComplete(bytes)) return cv::Mat();
  if (startsWith(bytes, {0x89, 'P', 'N', 'G'}) && !pngIsComplete(bytes)) return cv::Mat();
  try {
    return cv::imdecode(bytes, cv::IMREAD_COLOR);
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
