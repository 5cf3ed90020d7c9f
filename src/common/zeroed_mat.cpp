#include "common/zeroed_mat.h"

#include <cstdlib>
#include <new>

#include "common/buffer_allocator.h"

namespace velmora {
namespace {

// OpenCV's own allocator with calloc and free in place of its aligned malloc: calloc hands out
// fresh zero pages for large blocks instead of clearing them.
class ZeroedAllocator : public BufferAllocator {
 protected:
  void* obtain(std::size_t bytes) const override {
    void* memory = std::calloc(bytes == 0 ? 1 : bytes, 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
  }

  void release(void* memory, std::size_t /*bytes*/) const override { std::free(memory); }
};

// Never destroyed: images made by it may outlive any static object.
const ZeroedAllocator& zeroedAllocator() {
  static const auto* allocator = new ZeroedAllocator();
  return *allocator;
}

}  // namespace

cv::Mat zeroedMat(int rows, int cols, int type) {
  cv::Mat image;
  image.allocator = const_cast<ZeroedAllocator*>(&zeroedAllocator());
  image.create(rows, cols, type);
  // Mat::create falls back to OpenCV's allocator when this one throws: clear that memory here.
  if (image.u == nullptr || image.u->currAllocator != &zeroedAllocator()) {
    image.setTo(cv::Scalar::all(0));
  }
  return image;
}

}  // namespace velmora
