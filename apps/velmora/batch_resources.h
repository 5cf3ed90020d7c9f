// How many captures the batch runs at once when --jobs is not given: as many as the processors
// and the memory this process may use allow. The processors are those of the affinity mask,
// bounded by a cgroup CPU quota; the memory is MemAvailable, bounded by the cgroup's memory limit
// less its use (Slurm and Kubernetes confine a task with these).
#pragma once

#include <cstdint>
#include <vector>

#include "velmora/batch_manifest.h"

namespace velmora::tool {

// The peak memory of one capture: an 8192x4096 single stitch peaks near 1.1 GB and an HDR stitch
// or repair near 2.8 GB (taken as 1.25 and 3 GB); other grids scale with their area (a two-camera
// stitch runs its cameras one after the other). Never below 256 MB: the shots and the process
// itself stay.
uint64_t captureMemoryBytes(const CaptureRecord& record);

struct MachineMeans {
  unsigned processors = 1;
  uint64_t availableBytes = 0;  // 0 when unknown
};

MachineMeans machineMeans();

// min(processors, available memory / the largest capture's peak), at least 1 and at most the
// number of captures.
unsigned defaultJobs(const std::vector<CaptureRecord>& records, const MachineMeans& means);

}  // namespace velmora::tool
