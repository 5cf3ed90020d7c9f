// The batch's status files: one JSON object per line, one line per finished capture, appended as
// each capture ends. A capture run again appends a new line; the latest line of a name counts.
//
// Fields: name, operation, outcome ("done", "failed", "crashed", "stopped"), code (the library's
// status code: 0, -1, -2; -1 also for a failure before the library ran and for a crash), error
// (the capture's error line, empty when done), seconds, output (the capture's panorama, absolute;
// the upper camera's of a two-camera stitch), outputs (every file it writes), signal (of a crash
// or a stop, else 0), task (the array task that ran it, -1 for a local run), finished (UTC,
// ISO 8601) and log (the capture's console, absolute).
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace velmora::tool {

struct CaptureResult {
  std::string name;
  std::string operation;
  std::string outcome;
  int code = 0;
  std::string error;
  double seconds = 0.0;
  std::string output;
  std::vector<std::string> outputs;
  int signal = 0;
  int task = -1;
  std::string finished;
  std::string log;

  bool done() const { return outcome == "done"; }
};

// One result as the JSON object of its line.
nlohmann::json statusToJson(const CaptureResult& result);

// The status file of a run in `outputDir`: status.jsonl for a local run, status-task-<I>.jsonl
// for array task I.
std::string statusFilePath(const std::string& outputDir, int task);

// Appends one result as a line and flushes it to disk. Throws std::runtime_error when the file
// cannot be written.
void appendStatus(const std::string& statusPath, const CaptureResult& result);

// Reads one status file, in file order. A line that is not a complete record (a run killed in
// the middle of writing it) is skipped. A missing file reads as empty.
std::vector<CaptureResult> readStatusFile(const std::string& statusPath);

// Every status file in `outputDir` (status.jsonl and status-task-*.jsonl), merged: the latest
// record of each name, by its finished time, then file order. Sorted by name.
std::map<std::string, CaptureResult> readStatusFolder(const std::string& outputDir);

// Now in UTC as 2026-01-31T12:00:00Z.
std::string utcTimestamp();

}  // namespace velmora::tool
