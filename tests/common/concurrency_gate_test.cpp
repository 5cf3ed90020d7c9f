// The gate that keeps the flow threads from all computing at once.
#include "common/concurrency_gate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "common/worker_threads.h"

namespace velmora {
namespace {

TEST(ConcurrencyGate, LetsAtMostItsSlotsInAndEveryoneThroughEventually) {
  // Zero slots count as one.
  for (unsigned slots : {0u, 1u, 2u, 3u}) {
    ConcurrencyGate gate(slots);
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> done{0};
    WorkerThreads threads;
    for (int t = 0; t < 8; ++t) {
      threads.start([&] {
        const ConcurrencyGate::Pass pass(gate);
        const int now = ++inside;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        --inside;
        ++done;
      });
    }
    threads.join();
    EXPECT_EQ(done.load(), 8);
    EXPECT_LE(most.load(), static_cast<int>(slots == 0 ? 1 : slots)) << slots << " slots";
    EXPECT_GE(most.load(), 1);
  }
}

TEST(ConcurrencyGate, FreesTheSlotWhenTheHolderThrows) {
  ConcurrencyGate gate(1);
  EXPECT_THROW(
      {
        const ConcurrencyGate::Pass pass(gate);
        throw std::runtime_error("job failed");
      },
      std::runtime_error);
  // A lost slot would block here for ever.
  WorkerThreads other;
  std::atomic<bool> entered{false};
  other.start([&] {
    const ConcurrencyGate::Pass pass(gate);
    entered = true;
  });
  other.join();
  EXPECT_TRUE(entered.load());
}

}  // namespace
}  // namespace velmora
