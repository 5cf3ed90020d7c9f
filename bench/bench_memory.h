// Wall time, processor time and peak resident memory of a benchmarked step (Linux /proc): the
// growth of the process's peak resident memory over the resident memory before the step. The peak
// is reset through /proc/self/clear_refs before every measured call. Peer programs run as child
// processes are measured by their own peak (wait4's ru_maxrss).
#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

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

// The processor time of the whole process so far (user and system, every thread), in seconds.
// On a machine shared with other work it varies far less than the wall time.
inline double processSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct StepCost {
  double seconds = 0.0;
  double peakMegabytes = 0.0;
  double cpuSeconds = 0.0;
};

// Runs body once and returns its wall time, peak memory growth and processor time.
template <typename Body>
StepCost measureStep(Body body) {
  const double resident = statusMegabytes("VmRSS:");
  resetPeakMemory();
  const double cpuStart = processSeconds();
  const auto start = std::chrono::steady_clock::now();
  body();
  StepCost cost;
  cost.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  cost.cpuSeconds = processSeconds() - cpuStart;
  cost.peakMegabytes = statusMegabytes("VmHWM:") - resident;
  return cost;
}

// Times body with its peak memory growth in the counter peak_MB (the largest of the iterations)
// and its processor time per iteration, every thread's, in cpu_s.
template <typename Body>
void measureWithPeakMemory(benchmark::State& state, Body body) {
  double peak = 0.0;
  double cpu = 0.0;
  for (auto _ : state) {
    state.PauseTiming();
    const double resident = statusMegabytes("VmRSS:");
    resetPeakMemory();
    const double cpuStart = processSeconds();
    state.ResumeTiming();
    body();
    state.PauseTiming();
    cpu += processSeconds() - cpuStart;
    peak = std::max(peak, statusMegabytes("VmHWM:") - resident);
    state.ResumeTiming();
  }
  state.counters["peak_MB"] = peak;
  state.counters["cpu_s"] = cpu / static_cast<double>(state.iterations());
}

// Runs a program found on the PATH with `arguments` (argv[0] first), its output streams sent to
// /dev/null, and returns its wall time and peak resident memory; nothing when it cannot be
// started or does not exit with 0.
inline std::optional<StepCost> runProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t silenced;
  posix_spawn_file_actions_init(&silenced);
  posix_spawn_file_actions_addopen(&silenced, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&silenced, 2, "/dev/null", O_WRONLY, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  const int started = posix_spawnp(&child, argv[0], &silenced, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&silenced);
  if (started != 0) return std::nullopt;
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    return std::nullopt;
  }
  StepCost cost;
  cost.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  cost.peakMegabytes = static_cast<double>(usage.ru_maxrss) / 1024.0;
  return cost;
}

// Whether `program` is an executable file in one of the PATH's folders.
inline bool onPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string folders = path != nullptr ? path : "";
  for (std::size_t start = 0; start <= folders.size();) {
    std::size_t end = folders.find(':', start);
    if (end == std::string::npos) end = folders.size();
    const std::string candidate = folders.substr(start, end - start) + "/" + program;
    if (end > start && access(candidate.c_str(), X_OK) == 0) return true;
    start = end + 1;
  }
  return false;
}

}  // namespace velmora::bench
