// Runs one task per item of a list on as many threads as the machine has cores (never more
// threads than items): each thread takes the next item not yet taken until none is left. For
// per-item work that is too short to deserve a thread of its own per item, or whose items would
// otherwise all compete for the cores at once.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>

#include "common/worker_threads.h"

namespace velmora {

// Calls task(i) once for every i in [0, count). Every thread is joined before it returns. When a
// task throws, the threads take no further items, and the exception of the first thread (in
// start order) that caught one is rethrown.
template <typename Task>
void runForEachItem(std::size_t count, Task task) {
  if (count == 0) return;
  const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
  const std::size_t threadCount = std::min(cores, count);
  std::atomic<std::size_t> next{0};
  std::atomic<bool> failed{false};
  WorkerThreads threads;
  for (std::size_t t = 0; t < threadCount; ++t) {
    threads.start([&] {
      try {
        for (std::size_t i = next++; i < count && !failed; i = next++) task(i);
      } catch (...) {
        failed = true;
        throw;
      }
    });
  }
  threads.join();
}

}  // namespace velmora
