// Helpers shared by the test programs.
#pragma once

#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace velmora::testing {

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

// A camera configuration text in the library's format.
std::string cameraConfigText(double focal, double centerX, double centerY, float rotX = 0.0f,
                             float rotZ = 0.0f);

}  // namespace velmora::testing
