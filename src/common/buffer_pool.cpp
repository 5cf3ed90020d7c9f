#include "common/buffer_pool.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <vector>

#include "common/buffer_allocator.h"

namespace velmora {
namespace {

// The kept buffers by size, and the accounting of the header's promise.
class Pool {
 public:
  void open() {
    const std::lock_guard<std::mutex> lock(mutex_);
    // The most in use counts from the first session on, not from use before it.
    if (sessions_++ == 0) mostInUse_ = inUse_;
  }

  void close() {
    std::multimap<std::size_t, void*> released;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (--sessions_ > 0) return;
      released.swap(kept_);
      keptBytes_ = 0;
      mostInUse_ = inUse_;
    }
    for (const auto& buffer : released) cv::fastFree(buffer.second);
  }

  // A buffer of `bytes`: a kept one of that size, else a new one (first freeing kept buffers of
  // other sizes that the new one would otherwise stack on top of).
  void* take(std::size_t bytes) {
    std::vector<void*> released;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      inUse_ += bytes;
      mostInUse_ = std::max(mostInUse_, inUse_);
      const auto found = kept_.find(bytes);
      if (found != kept_.end()) {
        void* buffer = found->second;
        kept_.erase(found);
        keptBytes_ -= bytes;
        return buffer;
      }
      while (keptBytes_ > 0 && keptBytes_ + inUse_ > mostInUse_) {
        const auto largest = std::prev(kept_.end());
        keptBytes_ -= largest->first;
        released.push_back(largest->second);
        kept_.erase(largest);
      }
    }
    for (void* buffer : released) cv::fastFree(buffer);
    try {
      return cv::fastMalloc(bytes);
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mutex_);
      inUse_ -= bytes;
      throw;
    }
  }

  void give(void* buffer, std::size_t bytes) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      inUse_ -= bytes;
      if (sessions_ > 0) {
        kept_.emplace(bytes, buffer);
        keptBytes_ += bytes;
        return;
      }
    }
    cv::fastFree(buffer);
  }

  BufferPoolUsage usage() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return {inUse_, keptBytes_, mostInUse_};
  }

 private:
  std::mutex mutex_;
  int sessions_ = 0;
  std::multimap<std::size_t, void*> kept_;
  std::size_t keptBytes_ = 0;
  std::size_t inUse_ = 0;
  std::size_t mostInUse_ = 0;
};

// Never destroyed: pooled images may outlive any static object.
Pool& pool() {
  static auto* instance = new Pool();
  return *instance;
}

// OpenCV's own allocator, with large buffers taken from and given back to the pool.
class PoolAllocator : public BufferAllocator {
 protected:
  void* obtain(std::size_t bytes) const override {
    return bytes >= kPooledBufferMinimumBytes ? pool().take(bytes) : cv::fastMalloc(bytes);
  }

  void release(void* memory, std::size_t bytes) const override {
    if (bytes >= kPooledBufferMinimumBytes) {
      pool().give(memory, bytes);
    } else {
      cv::fastFree(memory);
    }
  }
};

cv::MatAllocator* poolAllocator() {
  static auto* allocator = new PoolAllocator();
  return allocator;
}

}  // namespace

BufferPoolSession::BufferPoolSession() {
  pool().open();
}

BufferPoolSession::~BufferPoolSession() {
  pool().close();
}

cv::Mat pooledMat() {
  cv::Mat image;
  image.allocator = poolAllocator();
  return image;
}

cv::Mat pooledMat(cv::Size size, int type) {
  cv::Mat image = pooledMat();
  image.create(size, type);
  return image;
}

cv::Mat pooledMat(int rows, int cols, int type) {
  return pooledMat(cv::Size(cols, rows), type);
}

BufferPoolUsage bufferPoolUsage() {
  return pool().usage();
}

}  // namespace velmora
