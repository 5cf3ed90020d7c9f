#include "velmora/batch_resources.h"

#include <sched.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <string>

namespace velmora::tool {

namespace {

constexpr double kSingleStitchBytes = 1.25e9;
constexpr double kHdrStitchBytes = 3.0e9;
constexpr double kReferenceCells = 8192.0 * 4096.0;
constexpr uint64_t kLeastCaptureBytes = 256ull << 20;

// The first number in a file, or `fallback` when there is none ("max" in a cgroup file).
double firstNumber(const std::string& path, double fallback) {
  std::ifstream in(path);
  double value = 0.0;
  return in >> value ? value : fallback;
}

uint64_t memAvailableBytes() {
  std::ifstream in("/proc/meminfo");
  std::string key;
  uint64_t kilobytes = 0;
  std::string unit;
  while (in >> key >> kilobytes >> unit) {
    if (key == "MemAvailable:") return kilobytes * 1024;
  }
  return 0;
}

}  // namespace

uint64_t captureMemoryBytes(const CaptureRecord& record) {
  const double perReference =
      record.operation == BatchOperation::Stitch ? kSingleStitchBytes : kHdrStitchBytes;
  const double cells = static_cast<double>(record.grid.width) * record.grid.height;
  return std::max<uint64_t>(kLeastCaptureBytes,
                            static_cast<uint64_t>(perReference * cells / kReferenceCells));
}

MachineMeans machineMeans() {
  MachineMeans means;
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0) means.processors = CPU_COUNT(&set);
  // cgroup v2: cpu.max holds "<quota> <period>" or "max <period>".
  std::ifstream cpuMax("/sys/fs/cgroup/cpu.max");
  std::string quota;
  double period = 0.0;
  if (cpuMax >> quota >> period && quota != "max" && period > 0.0) {
    const unsigned quotaProcessors = static_cast<unsigned>(std::ceil(std::stod(quota) / period));
    means.processors = std::min(means.processors, std::max(1u, quotaProcessors));
  }
  means.processors = std::max(1u, means.processors);

  means.availableBytes = memAvailableBytes();
  const double inf = std::numeric_limits<double>::infinity();
  const double limit = firstNumber("/sys/fs/cgroup/memory.max", inf);
  if (std::isfinite(limit)) {
    const double used = firstNumber("/sys/fs/cgroup/memory.current", 0.0);
    const uint64_t left = limit > used ? static_cast<uint64_t>(limit - used) : 0;
    means.availableBytes = means.availableBytes == 0 ? left : std::min(means.availableBytes, left);
  }
  return means;
}

unsigned defaultJobs(const std::vector<CaptureRecord>& records, const MachineMeans& means) {
  uint64_t largest = kLeastCaptureBytes;
  for (const CaptureRecord& record : records)
    largest = std::max(largest, captureMemoryBytes(record));
  unsigned jobs = means.processors;
  if (means.availableBytes > 0) jobs = std::min<uint64_t>(jobs, means.availableBytes / largest);
  jobs = std::min<unsigned>(jobs, static_cast<unsigned>(records.size()));
  return std::max(1u, jobs);
}

}  // namespace velmora::tool
