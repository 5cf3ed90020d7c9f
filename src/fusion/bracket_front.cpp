#include "fusion/bracket_front.h"

#include "common/buffer_pool.h"
#include "common/console.h"
#include "common/image_io.h"
#include "common/parallel_items.h"
#include "common/status.h"
#include "fusion/exposure_fusion.h"

namespace velmora {

namespace {

// One head position's fusion job.
struct FusionRecord {
  std::string paths[kSlotsPerPosition];
  cv::Mat shots[kSlotsPerPosition];  // already read, or empty
  WhiteBalanceGains gains;
  cv::Mat* output = nullptr;
};

}  // namespace

std::vector<std::string> bracketSlotsFromHost(const char* const* shots) {
  if (shots == nullptr) throw Failure("Missing shot paths: null pointer.");
  std::vector<std::string> slots;
  for (int k = 0; k < kHeadPositions * kSlotsPerPosition; ++k) {
    slots.push_back(shots[k] != nullptr ? shots[k] : "");
  }
  return slots;
}

bool checkBracketShots(cv::Size shotSize, const std::vector<std::string>& shots, int exposureCount,
                       std::vector<cv::Mat>* decoded) {
  if (shots.size() != kHeadPositions * kSlotsPerPosition) {
    throw Failure("Expected 18 shot slots, got " + std::to_string(shots.size()) + ".");
  }
  if (exposureCount < 2 || exposureCount > kSlotsPerPosition) {
    throw Failure("Exposure count must be 2 or 3, got " + std::to_string(exposureCount) + ".");
  }
  // The shots are decoded several at a time; the first unusable one in slot order is reported.
  std::vector<std::size_t> slots;
  for (int p = 0; p < kHeadPositions; ++p) {
    for (int e = 0; e < exposureCount; ++e) slots.push_back(p * kSlotsPerPosition + e);
  }
  std::vector<char> usable(slots.size(), 0);
  if (decoded != nullptr) decoded->assign(shots.size(), cv::Mat());
  runForEachItem(slots.size(), [&](std::size_t i) {
    cv::Mat shot = readColorImage(shots[slots[i]]);
    usable[i] = !shot.empty() && shot.size() == shotSize;
    if (decoded != nullptr && usable[i]) (*decoded)[slots[i]] = std::move(shot);
  });
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (!usable[i]) {
      console::err("Read imgPath: ", shots[slots[i]], " error.");
      return false;
    }
  }
  return true;
}

std::vector<cv::Mat> fuseBrackets(const std::vector<std::string>& shots, int exposureCount,
                                  const WhiteBalanceGains& gains, std::vector<cv::Mat> decoded) {
  std::vector<cv::Mat> fused(kHeadPositions);
  std::vector<FusionRecord> records(kHeadPositions);
  for (int p = 0; p < kHeadPositions; ++p) {
    FusionRecord& record = records[p];
    for (int e = 0; e < exposureCount; ++e) {
      const std::size_t slot = p * kSlotsPerPosition + e;
      record.paths[e] = shots[slot];
      if (slot < decoded.size()) record.shots[e] = std::move(decoded[slot]);
    }
    record.gains = gains;
    record.output = &fused[p];
  }
  // One fusion per core at a time: a fusion's working images are several times its shots, and
  // more fusions at once than cores would only hold more of them in memory together.
  // Each position's fusion takes the buffers of the one before back from the pool.
  const BufferPoolSession session;
  runForEachItem(records.size(), [&records](std::size_t p) {
    FusionRecord& record = records[p];
    // A fusion reports trouble by throwing; its boolean result carries nothing more.
    fuseExposures(
        {std::move(record.shots[2]), std::move(record.shots[1]), std::move(record.shots[0])},
        {record.paths[2], record.paths[1], record.paths[0]}, *record.output, record.gains.red,
        record.gains.green, record.gains.blue);
  });
  return fused;
}

}  // namespace velmora
