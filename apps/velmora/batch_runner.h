// Runs a batch's captures, each in a process of its own, several at once. Every finished capture
// is appended to the status file at once; a capture that fails or crashes is recorded with its
// status code and error line and does not stop the others. SIGINT and SIGTERM are forwarded to
// the running captures, which are waited for and recorded as "stopped"; captures not started yet
// stay unrecorded. A capture that does not end done leaves none of its outputs behind.
#pragma once

#include <string>
#include <vector>

#include "velmora/batch_manifest.h"
#include "velmora/batch_progress.h"
#include "velmora/batch_status.h"

namespace velmora::tool {

struct BatchSettings {
  std::string outputDir;      // absolute
  std::string tableDir;       // absolute
  std::string colourStepDir;  // absolute: holds isp.bat and asset/ for the captures that need it
  std::string statusPath;
  unsigned jobs = 1;
  int task = -1;  // the array task, -1 for a local run
};

struct BatchRun {
  std::vector<CaptureResult> results;  // this run's captures, in the order they finished
  int stopSignal = 0;                  // SIGINT or SIGTERM when the run was stopped
};

// Runs `captures` (every one of them; the caller has left out what is already done). Progress
// goes through `progress`.
BatchRun runCaptures(const std::vector<CaptureRecord>& captures, const BatchSettings& settings,
                     BatchProgress& progress);

}  // namespace velmora::tool
