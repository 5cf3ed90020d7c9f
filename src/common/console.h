// The library's console transcript: progress lines on standard output, failures on standard
// error, one message per line, every line flushed as it ends. Only the thread that called an
// exported function writes here; worker threads stay silent.
#pragma once

#include <chrono>
#include <iostream>

#include "velmora_version.h"

namespace velmora::console {

inline constexpr char kVersionBanner[] =
    "==================version-" VELMORA_VERSION_TEXT "==================";
inline constexpr char kSeparator[] = "---------------------------------";
inline constexpr char kIspSection[] = "-----------------ISP-----------------";

// Writes the pieces one after another to standard output and ends the line with a flush.
template <typename... Pieces>
void out(const Pieces&... pieces) {
  (std::cout << ... << pieces) << std::endl;
}

// Writes the pieces one after another to standard error and ends the line with a flush.
template <typename... Pieces>
void err(const Pieces&... pieces) {
  (std::cerr << ... << pieces) << std::endl;
}

// Measures a step on the monotonic clock. Durations are whole milliseconds (truncated) divided
// by 1000.0, so 1234 ms reads as 1.234 seconds.
class Stopwatch {
 public:
  Stopwatch() : start_(std::chrono::steady_clock::now()) {}

  void restart() { start_ = std::chrono::steady_clock::now(); }

  double seconds() const {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    return secondsFromMilliseconds(
        std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
  }

  static double secondsFromMilliseconds(long long milliseconds) { return milliseconds / 1000.0; }

 private:
  std::chrono::steady_clock::time_point start_;
};

// Writes a timing line: the label, then the seconds the stopwatch has run.
inline void printDuration(const char* label, const Stopwatch& stopwatch) {
  out(label, stopwatch.seconds());
}

}  // namespace velmora::console
