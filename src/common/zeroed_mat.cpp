#include "common/zeroed_mat.h"

#include <cstdlib>
#include <new>

namespace velmora {
namespace {

#if CV_VERSION_MAJOR >= 4
using AccessFlags = cv::AccessFlag;
#else
using AccessFlags = int;
#endif

// OpenCV's own allocator with calloc and free in place of its aligned malloc: calloc hands out
// fresh zero pages for large blocks instead of clearing them.
class ZeroedAllocator : public cv::MatAllocator {
 public:
  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step,
                         AccessFlags /*flags*/, cv::UMatUsageFlags /*usage*/) const override {
    size_t total = CV_ELEM_SIZE(type);
    for (int i = dims - 1; i >= 0; --i) {
      if (step != nullptr) {
        if (data != nullptr && step[i] != cv::Mat::AUTO_STEP) {
          total = step[i];
        } else {
          step[i] = total;
        }
      }
      total *= static_cast<size_t>(sizes[i]);
    }
    uchar* memory = static_cast<uchar*>(data);
    if (memory == nullptr) {
      memory = static_cast<uchar*>(std::calloc(total == 0 ? 1 : total, 1));
      if (memory == nullptr) throw std::bad_alloc();
    }
    auto* record = new cv::UMatData(this);
    record->data = record->origdata = memory;
    record->size = total;
    if (data != nullptr) record->flags |= cv::UMatData::USER_ALLOCATED;
    return record;
  }

  bool allocate(cv::UMatData* record, AccessFlags /*flags*/,
                cv::UMatUsageFlags /*usage*/) const override {
    return record != nullptr;
  }

  void deallocate(cv::UMatData* record) const override {
    if (record == nullptr) return;
    if (!(record->flags & cv::UMatData::USER_ALLOCATED)) std::free(record->origdata);
    delete record;
  }
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
