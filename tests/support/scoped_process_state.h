// Process-wide state that tests change for a while and must give back: the working directory
// (the colour step works relative to it) and environment variables (PATH).
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace velmora::testing {

// Enters `directory` and returns to the previous working directory when it goes out of scope.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::filesystem::path& directory) {
    std::filesystem::current_path(directory);
  }
  ~ScopedWorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(previous_, ignored);
  }
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;

 private:
  std::filesystem::path previous_ = std::filesystem::current_path();
};

// Sets an environment variable and restores its previous value (or its absence) afterwards.
class ScopedEnvironmentVariable {
 public:
  ScopedEnvironmentVariable(std::string name, const std::string& value) : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) previous_ = old;
    setenv(name_.c_str(), value.c_str(), 1);
  }
  ~ScopedEnvironmentVariable() {
    previous_ ? setenv(name_.c_str(), previous_->c_str(), 1) : unsetenv(name_.c_str());
  }
  ScopedEnvironmentVariable(const ScopedEnvironmentVariable&) = delete;
  ScopedEnvironmentVariable& operator=(const ScopedEnvironmentVariable&) = delete;

 private:
  std::string name_;
  std::optional<std::string> previous_;
};

// Writes an executable shell script.
inline void writeScript(const std::string& path, const std::string& body) {
  std::ofstream(path, std::ios::binary) << "#!/bin/sh\n" << body;
  using std::filesystem::perms;
  std::filesystem::permissions(path, perms::owner_all | perms::group_read | perms::group_exec);
}

// Sets `folder` up as a host's working directory for the colour step with stand-ins: the two
// saturation profiles and one in place under asset/, and an isp.bat that appends its arguments
// to isp.log and hands its input back as its result.
inline void writeStandInColourStep(const std::filesystem::path& folder) {
  std::filesystem::create_directory(folder / "asset");
  std::ofstream(folder / "asset/satuHigh.pp3") << "high\n";
  std::ofstream(folder / "asset/satuLow.pp3") << "low\n";
  std::ofstream(folder / "asset/isp_minion.pp3") << "in place\n";
  writeScript((folder / "isp.bat").string(), "echo \"$*\" >> isp.log\ncp \"$3\" \"$2\"\n");
}

}  // namespace velmora::testing
