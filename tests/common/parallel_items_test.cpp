#include "common/parallel_items.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace velmora {
namespace {

TEST(RunForEachItem, CallsTheTaskOnceForEveryItem) {
  for (std::size_t count : {0u, 1u, 7u, 100u}) {
    std::vector<std::atomic<int>> calls(count);
    runForEachItem(count, [&](std::size_t i) { ++calls[i]; });
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(calls[i], 1) << i << " of " << count;
  }
}

TEST(RunForEachItem, RethrowsATaskFailureAfterJoiningAndTakesNoMoreItems) {
  std::atomic<int> started{0};
  EXPECT_THROW(runForEachItem(1000,
                              [&](std::size_t i) {
                                ++started;
                                if (i == 3) throw std::runtime_error("item 3");
                                std::this_thread::sleep_for(std::chrono::microseconds(200));
                              }),
               std::runtime_error);
  // The other threads stop at their next item; none runs through the whole list.
  EXPECT_LT(started.load(), 1000);
}

}  // namespace
}  // namespace velmora
