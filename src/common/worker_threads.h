// A group of std::threads that is always joined: by join() or, at the latest, by the destructor.
// A task's exception never leaves its thread (which would end the process): it is kept and the
// first one, in start order, is rethrown by join() after every thread has ended.
#pragma once

#include <exception>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace velmora {

class WorkerThreads {
 public:
  WorkerThreads() = default;
  WorkerThreads(const WorkerThreads&) = delete;
  WorkerThreads& operator=(const WorkerThreads&) = delete;

  ~WorkerThreads() { joinQuietly(); }

  // Starts task() on a new thread. Throws std::system_error when no thread can be started; the
  // threads started before stay in the group and are joined as usual.
  template <typename Task>
  void start(Task task) {
    errors_.push_back(std::make_unique<std::exception_ptr>());
    std::exception_ptr* error = errors_.back().get();
    threads_.emplace_back([error, task = std::move(task)]() mutable {
      try {
        task();
      } catch (...) {
        *error = std::current_exception();
      }
    });
  }

  // Joins every thread in start order, then rethrows the first task exception, if any.
  void join() {
    joinQuietly();
    std::exception_ptr first;
    for (auto& error : errors_) {
      if (*error && !first) first = *error;
    }
    threads_.clear();
    errors_.clear();
    if (first) std::rethrow_exception(first);
  }

 private:
  void joinQuietly() noexcept {
    for (auto& thread : threads_) {
      if (thread.joinable()) thread.join();
    }
  }

  std::vector<std::thread> threads_;
  std::vector<std::unique_ptr<std::exception_ptr>> errors_;
};

}  // namespace velmora
