// Splits the rows of an image into interleaved blocks worked on by all cores.
#pragma once

#include <algorithm>
#include <thread>

#include "common/worker_threads.h"

namespace velmora::sim {

// Calls rowBody(row) once for every row in [0, rows), spread over the machine's cores; rows of
// one block run in order on one thread. Rethrows the first exception of any row.
template <typename RowBody>
void forEachRow(int rows, const RowBody& rowBody) {
  constexpr int kBlock = 16;
  const int blocks = (rows + kBlock - 1) / kBlock;
  const int threads =
      std::max(1, std::min(blocks, static_cast<int>(std::thread::hardware_concurrency())));
  auto work = [&](int first) {
    for (int block = first; block < blocks; block += threads) {
      const int end = std::min(rows, (block + 1) * kBlock);
      for (int row = block * kBlock; row < end; ++row) rowBody(row);
    }
  };
  WorkerThreads workers;
  for (int t = 1; t < threads; ++t) workers.start([&work, t] { work(t); });
  work(0);
  workers.join();
}

}  // namespace velmora::sim
