#include "velmora/rig_video.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;

// The video camera renders mid-tones brighter than the stills; the tone matching of the HDR
// stitch's video variant has this difference to take out.
constexpr double kVideoGamma = 0.8;

// The text quoted for /bin/sh.
std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

cv::Mat videoTone(const cv::Mat& image) {
  cv::Mat table(1, 256, CV_8U);
  for (int level = 0; level < 256; ++level) {
    table.at<uchar>(level) = cv::saturate_cast<uchar>(255.0 * std::pow(level / 255.0, kVideoGamma));
  }
  cv::Mat toned;
  cv::LUT(image, table, toned);
  return toned;
}

// Removes the file when it goes out of scope.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  ~TemporaryFile() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

void writeRigVideo(const cv::Mat& shot, const std::string& videoPath) {
  if ((kVideoFrameRegion & cv::Rect(0, 0, shot.cols, shot.rows)) != kVideoFrameRegion) {
    throw std::runtime_error(
        "A rig video needs shots of at least 4736x3324 (its frames are the "
        "4000x3000 region at column 736, row 324), not " +
        std::to_string(shot.cols) + "x" + std::to_string(shot.rows) + ".");
  }
  const TemporaryFile frame(videoPath + ".frame.png");
  if (!cv::imwrite(frame.path(), videoTone(shot(kVideoFrameRegion)))) {
    throw std::runtime_error("Cannot write " + frame.path() + ".");
  }
  std::error_code ignored;
  fs::remove(videoPath, ignored);
  const std::string command = "ffmpeg -hide_banner -loglevel error -y -loop 1 -framerate 2 -i " +
                              shellQuoted(frame.path()) +
                              " -t 2 -c:v mpeg4 -q:v 4 -pix_fmt yuv420p " + shellQuoted(videoPath);
  if (std::system(command.c_str()) != 0 || !fs::is_regular_file(videoPath)) {
    throw std::runtime_error("ffmpeg could not write the rig video " + videoPath + ".");
  }
}

}  // namespace velmora::tool
