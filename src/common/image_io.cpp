#include "common/image_io.h"

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>

#include "api/status.h"

#ifdef _WIN32
#include <process.h>
#define velmora_getpid _getpid
#else
#include <unistd.h>
#define velmora_getpid getpid
#endif

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
  std::vector<uchar> bytes;
  try {
    std::ifstream in(path, std::ios::binary);
    if (!in) return cv::Mat();
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  } catch (const std::ios_base::failure&) {
    return cv::Mat();  // a directory or a device that cannot be read as a file
  }
  if (bytes.size() < 4) return cv::Mat();
  if (startsWith(bytes, {0xFF, 0xD8}) && !jpegIsComplete(bytes)) return cv::Mat();
  if (startsWith(bytes, {0x89, 'P', 'N', 'G'}) && !pngIsComplete(bytes)) return cv::Mat();
  try {
    return cv::imdecode(bytes, cv::IMREAD_COLOR);
  } catch (const cv::Exception&) {
    return cv::Mat();
  }
}

namespace {

std::string temporarySibling(const std::string& path) {
  static std::atomic<unsigned> writes{0};
  const auto slash = path.find_last_of("/\\");
  const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  return directory + ".velmora-" + std::to_string(velmora_getpid()) + "-" +
         std::to_string(writes.fetch_add(1)) + "-" + name;
}

// Moves the finished temporary file into place, or removes it and throws.
void commitTemporary(const std::string& temporary, const std::string& path, bool written) {
  if (written) {
#ifdef _WIN32
    std::remove(path.c_str());
#endif
    written = std::rename(temporary.c_str(), path.c_str()) == 0;
  }
  if (!written) {
    std::remove(temporary.c_str());
    throw Failure("Write image: " + path + " error.");
  }
}

}  // namespace

void writeImage(const std::string& path, const cv::Mat& image, const std::vector<int>& params) {
  const std::string temporary = temporarySibling(path);
  bool written = false;
  try {
    written = !image.empty() && cv::imwrite(temporary, image, params);
  } catch (const cv::Exception&) {
    written = false;
  }
  commitTemporary(temporary, path, written);
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
  const std::string temporary = temporarySibling(path);
  bool written = false;
  if (std::FILE* file = std::fopen(temporary.c_str(), "wb")) {
    written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    written = std::fclose(file) == 0 && written;
  }
  commitTemporary(temporary, path, written);
}

}  // namespace velmora
