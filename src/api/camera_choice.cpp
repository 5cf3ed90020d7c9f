#include "api/camera_choice.h"

#include <stdexcept>

namespace velmora {

std::optional<Camera> cameraFromConfigPath(const std::string& path) {
  const auto slash = path.find_last_of('/');
  if (slash == std::string::npos || slash + 1 == path.size()) {
    throw std::invalid_argument("configuration path has no file name: " + path);
  }
  const std::string name = path.substr(slash + 1);
  if (name.compare(0, 3, "Up.") == 0) return Camera::Up;
  if (name[0] == 'D') return Camera::Down;
  return std::nullopt;
}

}  // namespace velmora
