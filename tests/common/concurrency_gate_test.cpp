// The gate that keeps the flow threads from all computing at once.
#include "common/concurrency_gate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "common/worker_threads.h"

namespace velmora {
namespace {

TEST(ConcurrencyGate, LetsAtMostItsSlotsInAndEveryoneThroughEventually) {
  for (unsigned slots : {0u, 1u, 3u}) {  // zero slots count as one
    ConcurrencyGate gate(slots);
    std::atomic<int> inside{0}, most{0}, done{0};
    WorkerThreads threads;
    for (int t = 0; t < 8; ++t) {
      threads.start([&] {
        const ConcurrencyGate::Pass pass(gate);
        const int now = ++inside;
        for (int seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        --inside;
        ++done;
      });
    }
    threads.join();
    EXPECT_EQ(done.load(), 8);
    EXPECT_LE(most.load(), static_cast<int>(std::max(slots, 1u))) << slots << " slots";
  }
}

TEST(ConcurrencyGate, FreesTheSlotWhenTheHolderThrows) {
  ConcurrencyGate gate(1);
  const auto failingJob = [&] {
    const ConcurrencyGate::Pass pass(gate);
    throw std::runtime_error("job failed");
  };
  EXPECT_THROW(failingJob(), std::runtime_error);
  WorkerThreads other;  // a lost slot would block here for ever
  other.start([&] { const ConcurrencyGate::Pass pass(gate); });
  other.join();
}

}  // namespace
}  // namespace velmora
