// The batch's progress on standard output: on a terminal a bar redrawn in place (captures done,
// failed, running, elapsed, estimated time left) with a line above it for every capture that
// fails; otherwise one plain line per finished capture with the same counts.
#pragma once

#include <chrono>
#include <iosfwd>
#include <string>

#include "velmora/batch_status.h"

namespace velmora::tool {

class BatchProgress {
 public:
  // `toRun` captures will run; `terminal` chooses the bar.
  BatchProgress(std::ostream& out, size_t toRun, bool terminal);

  void started();
  void finished(const CaptureResult& result);
  // Redraws the bar (elapsed time moves on); nothing in plain mode.
  void tick();
  // Ends the bar's line.
  void close();

  // "1:02:03" or "02:03".
  static std::string clock(double seconds);

 private:
  std::string counts() const;
  void drawBar();

  std::ostream& out_;
  size_t toRun_;
  bool terminal_;
  size_t done_ = 0, failed_ = 0, running_ = 0;
  std::chrono::steady_clock::time_point start_;
};

}  // namespace velmora::tool
