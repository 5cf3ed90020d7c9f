// Peak resident memory of a benchmarked step (Linux /proc): the growth of the process's peak
// resident memory over the resident memory before the step. The peak is reset through
// /proc/self/clear_refs before every iteration.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace velmora::bench {

// A field of /proc/self/status ("VmRSS:", "VmHWM:") in MB.
inline double statusMegabytes(const char* key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(key, 0) == 0) return std::atof(line.c_str() + std::strlen(key)) / 1024.0;
  }
  return 0.0;
}

inline void resetPeakMemory() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

// Times body with its peak memory growth in the counter peak_MB.
template <typename Body>
void measureWithPeakMemory(benchmark::State& state, Body body) {
  double peak = 0.0;
  for (auto _ : state) {
    state.PauseTiming();
    const double resident = statusMegabytes("VmRSS:");
    resetPeakMemory();
    state.ResumeTiming();
    body();
    state.PauseTiming();
    peak = std::max(peak, statusMegabytes("VmHWM:") - resident);
    state.ResumeTiming();
  }
  state.counters["peak_MB"] = peak;
}

}  // namespace velmora::bench
