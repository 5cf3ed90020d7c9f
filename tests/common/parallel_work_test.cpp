// Work spread over threads: the gate that limits how many compute at once, and the per-item runner.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "common/concurrency_gate.h"
#include "common/parallel_items.h"
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

TEST(RunForEachItem, CallsTheTaskOnceForEveryItemAndTakesNoMoreAfterAFailure) {
  for (std::size_t count : {0u, 1u, 100u}) {
    std::vector<std::atomic<int>> calls(count);
    runForEachItem(count, [&](std::size_t i) { ++calls[i]; });
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(calls[i], 1) << i << " of " << count;
  }
  std::atomic<int> started{0};
  const auto task = [&](std::size_t i) {
    ++started;
    if (i == 3) throw std::runtime_error("item 3");
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  };
  EXPECT_THROW(runForEachItem(1000, task), std::runtime_error);
  EXPECT_LT(started.load(), 1000);
}

}  // namespace
}  // namespace velmora
