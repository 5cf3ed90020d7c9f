// The Execute calls of the stitch handle, each turning the tool's arguments into the C interface's
// arrays and returning the status code the call stored.
#include <stdexcept>

#include "velmora.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

constexpr size_t kBracketSlots = 18;

std::vector<const char*> pathPointers(const std::vector<std::string>& paths) {
  std::vector<const char*> pointers;
  for (const std::string& path : paths) pointers.push_back(path.c_str());
  return pointers;
}

void requireBracketSlots(const std::vector<std::string>& slots) {
  if (slots.size() != kBracketSlots) {
    throw std::invalid_argument("A bracketed shot set has exactly 18 slots.");
  }
}

}  // namespace

int StitchSession::stitch(const std::string& configPath, const std::vector<std::string>& shots,
                          const std::string& outputPath, float red, float green, float blue) {
  if (shots.size() != 6) throw std::invalid_argument("A stitch takes exactly six shots.");
  std::vector<const char*> paths = pathPointers(shots);
  ZEMU_ExecuteOptFlowStitchHandle(handle_, configPath.c_str(), paths.data(), outputPath.c_str(),
                                  red, green, blue);
  return code();
}

int StitchSession::hdr(const std::vector<std::string>& slots, const std::string& outputPath,
                       bool withVideo, Gains gains, int exposureCount) {
  requireBracketSlots(slots);
  std::vector<const char*> paths = pathPointers(slots);
  ZEMU_ExecuteOptFlowStitchHDRHandle(handle_, paths.data(), outputPath.c_str(), withVideo ? 1 : 0,
                                     gains.red, gains.green, gains.blue, exposureCount);
  return code();
}

int StitchSession::repair(const std::vector<std::string>& slots, const std::string& outputPath,
                          const std::vector<PixelRect>& rectangles, Gains gains) {
  requireBracketSlots(slots);
  std::vector<const char*> paths = pathPointers(slots);
  std::vector<int> lefts, tops, widths, heights;
  for (const PixelRect& rectangle : rectangles) {
    lefts.push_back(rectangle.x);
    tops.push_back(rectangle.y);
    widths.push_back(rectangle.width);
    heights.push_back(rectangle.height);
  }
  ZEMU_ExecutePanoRepairHandle(handle_, paths.data(), outputPath.c_str(), lefts.data(), tops.data(),
                               widths.data(), heights.data(), static_cast<int>(rectangles.size()),
                               gains.red, gains.green, gains.blue);
  return code();
}

int StitchSession::isp(const std::string& name) {
  ZEMU_ExecuteISPHandle(handle_, name.c_str());
  return code();
}

}  // namespace velmora::tool
