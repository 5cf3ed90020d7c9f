#include "common/buffer_allocator.h"

namespace velmora {

cv::UMatData* BufferAllocator::allocate(int dims, const int* sizes, int type, void* data,
                                        size_t* step, MatAccessFlags /*flags*/,
                                        cv::UMatUsageFlags /*usage*/) const {
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
  uchar* memory = static_cast<uchar*>(data != nullptr ? data : obtain(total));
  auto* record = new cv::UMatData(this);
  record->data = record->origdata = memory;
  record->size = total;
  if (data != nullptr) record->flags |= cv::UMatData::USER_ALLOCATED;
  return record;
}

bool BufferAllocator::allocate(cv::UMatData* record, MatAccessFlags /*flags*/,
                               cv::UMatUsageFlags /*usage*/) const {
  return record != nullptr;
}

void BufferAllocator::deallocate(cv::UMatData* record) const {
  if (record == nullptr) return;
  if (!(record->flags & cv::UMatData::USER_ALLOCATED)) release(record->origdata, record->size);
  delete record;
}

}  // namespace velmora
