#include "support/test_support.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace velmora::testing {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "velmora-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

CapturedConsole::CapturedConsole()
    : oldOut_(std::cout.rdbuf(out_.rdbuf())), oldErr_(std::cerr.rdbuf(err_.rdbuf())) {}

CapturedConsole::~CapturedConsole() {
  std::cout.rdbuf(oldOut_);
  std::cerr.rdbuf(oldErr_);
}

std::vector<std::string> CapturedConsole::lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void writeTextFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool sameBits(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && a.isContinuous() && b.isContinuous() &&
         std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
}

bool makeTestClip(const std::string& path, const std::string& size) {
  return std::system(("ffmpeg -hide_banner -loglevel error -f lavfi -i testsrc=size=" + size +
                      ":rate=2 -t 2 -c:v mpeg4 -q:v 10 -y " + path)
                         .c_str()) == 0;
}

std::string videoLikeData() {
  cv::Mat noise(1, 16384, CV_8U);
  cv::RNG(14).fill(noise, cv::RNG::UNIFORM, 0, 256);
  std::string data(noise.ptr<char>(), noise.total());
  data.replace(0, 12,
               std::string("\0\0\0\x18"
                           "ftypmp42",
                           12));
  for (size_t at : {100, 2000, 9000}) {
    data[at] = '\xFF';
    data[at + 1] = '\xD9';
    data[at + 3] = '\xD8';
  }
  return data;
}

std::vector<const char*> pointers(const std::vector<std::string>& paths) {
  std::vector<const char*> result;
  for (const auto& path : paths) result.push_back(path.c_str());
  return result;
}

std::string cameraConfigText(double focal, double centerX, double centerY, float rotX, float rotZ) {
  std::ostringstream text;
  text.precision(17);
  text << "focal " << focal << "\ncenterX " << centerX << "\ncenterY " << centerY << "\nrotX "
       << rotX << "\nextra1 0\nrotZ " << rotZ << "\nextra2 0\nextra3 0\nextra4 0\n";
  return text.str();
}

}  // namespace velmora::testing
