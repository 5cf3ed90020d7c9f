// The demo's part of the report: for one camera's panorama, the report's pictures of it and how
// closely it matches the simulated ground truth.
#pragma once

#include <string>

#include "velmora/report_page.h"

namespace velmora::tool {

struct DemoPanoramaFiles {
  std::string camera;  // "Up" or "Down"
  std::string panorama;
  std::string truth;
  std::string seen;
};

// Writes <camera>_360.jpg (viewer-ready), <camera>_panorama.<extension> (a copy of the library's
// file) and <camera>_error.png (the heat map) into `reportFolder` and measures the panorama against
// its truth. Throws std::runtime_error naming a file that cannot be read or written.
ReportPanorama demoReportPanorama(const DemoPanoramaFiles& files, const std::string& reportFolder);

}  // namespace velmora::tool
