// The files a report page needs beside it: the 360 viewer (its script and stylesheet) and the
// report's own stylesheet. They are installed in share/velmora/viewer/ next to the tool's bin/
// (the build tree stages them in the same place), so a report never loads anything from the
// internet.
#pragma once

#include <filesystem>

namespace velmora::tool {

// The folder holding the viewer's files for this tool: <tool>/../share/velmora/viewer, or the
// folder given in the environment variable VELMORA_VIEWER_DIR.
std::filesystem::path viewerAssetsFolder();

// Copies the viewer's files and the report stylesheet into `reportFolder`. Throws
// std::runtime_error naming what is missing, and how to get it, when a file is not there.
void copyViewerAssets(const std::filesystem::path& reportFolder);

}  // namespace velmora::tool
