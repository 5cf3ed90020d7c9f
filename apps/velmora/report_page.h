// The report page (index.html) that `velmora demo` and `velmora batch` leave in their output's
// report/ folder: per panorama an interactive 360 view, the flat panorama with its six seam bands
// marked and, where a ground truth exists, where and how much the panorama departs from it; for a
// batch, every capture with its outcome. Plain HTML with one stylesheet, readable without
// JavaScript; only the 360 views need it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/stitch_agreement.h"
#include "velmora/batch_status.h"
#include "velmora/equirect_export.h"

namespace velmora::tool {

// One panorama on the page. File names are relative to the report folder.
struct ReportPanorama {
  std::string id;     // unique on the page: letters, digits, '-' and '_'
  std::string title;  // "Up camera"
  std::string viewerReadyFile;
  SphereWindow window;
  std::string flatFile;  // the library's framed panorama
  // The error heat map and the figures against the ground truth, when there is one.
  std::string heatMapFile;
  std::optional<sim::PanoramaAgreement> agreement;
  // Load the 360 view with the page, or when the reader asks for it.
  bool loadAtOnce = true;
};

// One capture of a batch as the report lists it: its latest status record (outcome "not run"
// for a capture with none), its preview and its first panorama's section.
struct ReportCapture {
  CaptureResult result;
  std::string thumbnailFile;  // relative to the report folder; empty for none
  std::string panoramaId;     // its ReportPanorama's id; empty for none
};

struct ReportContent {
  std::string title;
  std::string summary;  // one paragraph of plain text
  std::vector<ReportCapture> captures;
  std::vector<ReportPanorama> panoramas;
};

// The page's HTML. Captures are listed failures first, each group in the given order.
std::string reportHtml(const ReportContent& content);

// Writes index.html into `reportFolder` and copies the viewer's files and the stylesheet beside
// it (copyViewerAssets). The images the content names must be there already. Throws
// std::runtime_error when a file cannot be written or the viewer's files are missing.
void writeReportPage(const std::string& reportFolder, const ReportContent& content);

}  // namespace velmora::tool
