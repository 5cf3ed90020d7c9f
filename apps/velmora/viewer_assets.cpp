#include "velmora/viewer_assets.h"

#include <cstdlib>
#include <stdexcept>

#include "velmora/tool_support.h"

namespace velmora::tool {

namespace fs = std::filesystem;

namespace {

// The viewer's script and stylesheet, its licence, and the report's stylesheet.
constexpr const char* kViewerFiles[] = {"pannellum.js", "pannellum.css", "pannellum-COPYING",
                                        "report.css"};

}  // namespace

fs::path viewerAssetsFolder() {
  if (const char* given = std::getenv("VELMORA_VIEWER_DIR"); given != nullptr && *given != '\0') {
    return given;
  }
  return toolExecutable().parent_path().parent_path() / "share" / "velmora" / "viewer";
}

void copyViewerAssets(const fs::path& reportFolder) {
  const fs::path folder = viewerAssetsFolder();
  for (const char* name : kViewerFiles) {
    if (!fs::is_regular_file(folder / name)) {
      throw std::runtime_error(
          "The report viewer's file " + (folder / name).string() +
          " is missing: install Velmora's package, or run `npm ci` in share/viewer (as "
          "scripts/install-deps does) and build again.");
    }
  }
  fs::create_directories(reportFolder);
  for (const char* name : kViewerFiles) {
    fs::copy_file(folder / name, reportFolder / name, fs::copy_options::overwrite_existing);
  }
}

}  // namespace velmora::tool
