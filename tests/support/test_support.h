// Helpers shared by the test programs.
#pragma once

#include <filesystem>
#include <iostream>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace velmora::testing {

using Lines = std::vector<std::string>;
constexpr unsigned kFailed = 0xFFFFFFFFu;  // the status code -1 as the interface returns it

// A fresh folder below the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// Redirects std::cout and std::cerr into buffers for its lifetime.
class CapturedConsole {
 public:
  CapturedConsole();
  ~CapturedConsole();
  CapturedConsole(const CapturedConsole&) = delete;
  CapturedConsole& operator=(const CapturedConsole&) = delete;

  std::string out() const { return out_.str(); }
  std::string err() const { return err_.str(); }
  std::vector<std::string> outLines() const { return lines(out()); }
  std::vector<std::string> errLines() const { return lines(err()); }

 private:
  static std::vector<std::string> lines(const std::string& text);
  std::ostringstream out_, err_;
  std::streambuf* oldOut_;
  std::streambuf* oldErr_;
};

void writeTextFile(const std::string& path, const std::string& text);
std::string readFile(const std::string& path);

// The same size, type and bytes.
bool sameBits(const cv::Mat& a, const cv::Mat& b);

// A two-second clip of ffmpeg's test pattern of `size` ("3840x2880") at two frames a second;
// false when ffmpeg is missing or fails.
bool makeTestClip(const std::string& path, const std::string& size);

// 16 kB as a phone appends its video after a shot: an MP4 box header, then noise that holds
// JPEG end and start markers of its own.
std::string videoLikeData();

// Path lists as the interface takes them.
std::vector<const char*> pointers(const std::vector<std::string>& paths);

// A camera configuration text in the library's format.
std::string cameraConfigText(double focal, double centerX, double centerY, float rotX = 0.0f,
                             float rotZ = 0.0f);

}  // namespace velmora::testing
