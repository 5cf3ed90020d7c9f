// Where the rig keeps its video: beside the shots, named after the shot taken with it.
#pragma once

#include <string>

namespace velmora {

// The rig video beside a shot: the shot's directory, "/", the first 14 characters of its file
// name and ".mp4" ("." is the directory of a name without "/").
std::string videoPathForShot(const std::string& shotPath);

}  // namespace velmora
