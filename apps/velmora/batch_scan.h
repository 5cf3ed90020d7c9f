// `velmora batch scan`: a manifest for a folder of capture folders laid out as `velmora
// simulate` writes them: Up.txt and Down.txt with Up_<p>.jpg and Down_<p>.jpg (a single stitch of
// the cameras present) or Up_<p>_<e>.jpg (an HDR stitch of the upper camera's brackets).
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "velmora/tool_support.h"

namespace velmora::tool {

struct ScanSettings {
  std::string folder;
  std::string manifestPath;  // the paths written are relative to its folder
  PixelSize grid{8192, 4096};
  PixelSize shotSize{0, 0};  // 0: the size of the first capture's first shot
  bool colourStep = false;   // HDR captures run the colour step
};

// One record per capture folder (the folder's name, made file-name safe, is the capture's name),
// in name order. Folders holding neither configuration are left out with a note on standard
// error; a capture's missing shots are named as expected, so that its run fails and says which.
// Throws std::runtime_error when no capture folder is found.
std::vector<nlohmann::json> scanCaptureFolders(const ScanSettings& settings);

}  // namespace velmora::tool
