#include "velmora/external_programs.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;

bool isExecutableFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored) && access(path.c_str(), X_OK) == 0;
}

}  // namespace

bool programAvailable(const std::string& name) {
  if (isExecutableFile(name)) return true;
  if (name.find('/') != std::string::npos) return false;
  const char* path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (isExecutableFile(fs::path(folder.empty() ? "." : folder) / name)) return true;
  }
  return false;
}

void requireProgram(const std::string& name, const std::string& purpose) {
  if (programAvailable(name)) return;
  throw std::runtime_error(purpose + ", but " + name +
                           " is neither an executable file in the working directory (" +
                           fs::current_path().string() + ") nor on PATH.");
}

void requireColourStepSetup() {
  const std::string setUp =
      " Copy share/isp/isp.bat and share/isp/asset/ of the project into the working directory "
      "(see the README, \"Colour step (ISP) on Linux\").";
  if (!programAvailable("isp.bat")) {
    throw std::runtime_error(
        "The colour step runs isp.bat, which is neither in the working "
        "directory (" +
        fs::current_path().string() + ") nor on PATH." + setUp);
  }
  if (!fs::is_directory("asset")) {
    throw std::runtime_error(
        "The colour step reads its profiles from ./asset/, which the working "
        "directory (" +
        fs::current_path().string() + ") does not hold." + setUp);
  }
}

}  // namespace velmora::tool
