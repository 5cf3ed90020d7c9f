#include "rig/rig_video_path.h"

namespace velmora {

namespace {

constexpr size_t kVideoNameLength = 14;

}  // namespace

std::string videoPathForShot(const std::string& shotPath) {
  const auto slash = shotPath.find_last_of('/');
  const std::string directory = slash == std::string::npos ? "." : shotPath.substr(0, slash);
  const std::string name = slash == std::string::npos ? shotPath : shotPath.substr(slash + 1);
  return directory + "/" + name.substr(0, kVideoNameLength) + ".mp4";
}

}  // namespace velmora
