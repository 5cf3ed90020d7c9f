// The batch's report page: every capture with its outcome, timing and preview, failures first,
// and a 360 view of every panorama the batch made.
#pragma once

#include <string>

#include "velmora/batch_report.h"

namespace velmora::tool {

// Writes <outputDir>/report/index.html for the batch's summary: a row per capture (those with no
// record as "not run") and, for every panorama of a capture that is done, a preview, the
// viewer-ready file and a copy of the panorama in the report folder, its 360 view loaded on
// request. A panorama that cannot be read is said in its capture's row. Returns the page's path.
// Throws std::runtime_error when the page or the viewer's files cannot be written.
std::string writeBatchReportPage(const std::string& outputDir, const BatchSummary& summary);

}  // namespace velmora::tool
