// Which camera of the rig a configuration path names.
#pragma once

#include <optional>
#include <string>

#include "rig/camera_setup.h"

namespace velmora {

// The last path component decides: one that begins with "Up." names the upper camera, one that
// begins with "D" the lower camera; anything else names none. A path without "/" or with
// nothing after its last "/" is malformed and throws std::invalid_argument.
std::optional<Camera> cameraFromConfigPath(const std::string& path);

}  // namespace velmora
