// The summary of a batch: the latest record of every capture in the output folder's status files
// (all array tasks merged), counted by outcome, printed and written as summary.json.
#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "velmora/batch_manifest.h"
#include "velmora/batch_status.h"

namespace velmora::tool {

struct BatchSummary {
  std::vector<CaptureResult> records;  // by name
  std::vector<std::string> notRun;     // captures of the manifest without a record
  size_t done = 0, failed = 0, stopped = 0;

  bool allDone() const { return failed == 0 && stopped == 0 && notRun.empty(); }
};

// `latest` as readStatusFolder gives it; with `manifest` (may be empty) the summary also names
// the captures that have no record and leaves out records of captures it does not hold.
BatchSummary summarizeBatch(const std::map<std::string, CaptureResult>& latest,
                            const std::vector<CaptureRecord>& manifest);

// Prints the totals and one line per capture that is not done.
void printSummary(std::ostream& out, const BatchSummary& summary);

// Writes <outputDir>/summary.json: {"captures", "done", "failed", "stopped", "not_run": [names],
// "records": [status records]}; through a temporary and a rename.
void writeSummaryFile(const std::string& outputDir, const BatchSummary& summary);

}  // namespace velmora::tool
