// OpenCV's standard Mat allocator with the memory itself obtained and released by a subclass:
// the layout (steps and size), the record OpenCV keeps and images over memory of their own are
// handled here once.
#pragma once

#include <cstddef>
#include <opencv2/core.hpp>

namespace velmora {

#if CV_VERSION_MAJOR >= 4
using MatAccessFlags = cv::AccessFlag;
#else
using MatAccessFlags = int;
#endif

class BufferAllocator : public cv::MatAllocator {
 public:
  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step,
                         MatAccessFlags flags, cv::UMatUsageFlags usage) const override;
  bool allocate(cv::UMatData* record, MatAccessFlags flags,
                cv::UMatUsageFlags usage) const override;
  void deallocate(cv::UMatData* record) const override;

 protected:
  // Memory for `bytes` (possibly 0); throws when none can be had.
  virtual void* obtain(std::size_t bytes) const = 0;
  // Gives back what obtain(bytes) returned.
  virtual void release(void* memory, std::size_t bytes) const = 0;
};

}  // namespace velmora
