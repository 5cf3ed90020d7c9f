// A gate that lets at most a fixed number of threads through at a time; the others wait at it.
// The stitch driver starts more flow threads than the machine has cores (two per neighbouring
// pair): letting only as many compute at once as there are cores keeps their working images in
// the caches and off the scheduler's round robin, without changing what any of them computes.
#pragma once

#include <condition_variable>
#include <mutex>

namespace velmora {

class ConcurrencyGate {
 public:
  // slots: how many threads may be inside at once (0 counts as 1).
  explicit ConcurrencyGate(unsigned slots) : free_(slots == 0 ? 1 : slots) {}
  ConcurrencyGate(const ConcurrencyGate&) = delete;
  ConcurrencyGate& operator=(const ConcurrencyGate&) = delete;

  // Holds one slot from construction (waiting for one to be free) to destruction.
  class Pass {
   public:
    explicit Pass(ConcurrencyGate& gate) : gate_(gate) { gate_.enter(); }
    ~Pass() { gate_.leave(); }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

   private:
    ConcurrencyGate& gate_;
  };

 private:
  void enter() {
    std::unique_lock<std::mutex> lock(mutex_);
    freed_.wait(lock, [this] { return free_ > 0; });
    --free_;
  }
  void leave() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++free_;
    }
    freed_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable freed_;
  unsigned free_;
};

}  // namespace velmora
