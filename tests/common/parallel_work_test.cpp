// The gate that limits how many threads compute at once. (The per-item runner is covered where it
// runs: the projection, ring and bracket comparisons check every item, the bad-input test its
// failures.)
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "common/concurrency_gate.h"
#include "common/worker_threads.h"

namespace velmora {
namespace {

TEST(ConcurrencyGate, LetsAtMostItsSlotsInAndFreesTheSlotOfAHolderThatThrows) {
  for (unsigned slots : {0u, 1u, 3u}) {  // zero slots count as one
    ConcurrencyGate gate(slots);
    const auto failingJob = [&] {
      const ConcurrencyGate::Pass pass(gate);
      throw std::runtime_error("job failed");
    };
    EXPECT_THROW(failingJob(), std::runtime_error);  // a lost slot would block the threads below
    std::atomic<int> inside{0}, most{0};
    WorkerThreads threads;
    for (int t = 0; t < 8; ++t) {
      threads.start([&] {
        const ConcurrencyGate::Pass pass(gate);
        const int now = ++inside;
        for (int seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        --inside;
      });
    }
    threads.join();
    EXPECT_LE(most.load(), static_cast<int>(std::max(slots, 1u))) << slots << " slots";
  }
}

}  // namespace
}  // namespace velmora
