// The front shared by the bracketed operations (HDR stitch, panorama repair): checking the
// shots and fusing every head position's exposures.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace velmora {

inline constexpr int kHeadPositions = 6;
inline constexpr int kSlotsPerPosition = 3;

struct WhiteBalanceGains {
  float red = 1.0f;
  float green = 1.0f;
  float blue = 1.0f;
};

// The 18 slots of a host's bracketed shot list; null entries read as empty paths. Throws Failure
// for a null list.
std::vector<std::string> bracketSlotsFromHost(const char* const* shots);

// Reads shot p x 3 + e for every position p and exposure e below exposureCount and checks it
// against `shotSize`, the Up camera's shot size as Init recorded it. The first shot that cannot be
// read or has another size prints "Read imgPath: <path> error." on standard error and makes the
// result false. `shots` must hold 18 paths (unused slots may be empty); exposureCount must be 2 or
// 3 (Failure otherwise). When `decoded` is given it receives the 18 slots' images as read (empty
// for the slots not checked), so that the fusion need not read them again.
bool checkBracketShots(cv::Size shotSize, const std::vector<std::string>& shots, int exposureCount,
                       std::vector<cv::Mat>* decoded = nullptr);

// Fuses every head position's exposures, one position per core at a time, handing the paths of
// slot 2, 1 and 0 (empty beyond exposureCount) to the exposure fusion. Every thread is joined;
// an exception inside a fusion (an unreadable or missing exposure) stops the positions not yet
// begun and is rethrown after the joins.
// Returns the six fused 8-bit BGR shots in position order. `decoded` may hold, by slot, images
// already read from the paths (as checkBracketShots gives them); they are fused instead of
// reading their paths again.
std::vector<cv::Mat> fuseBrackets(const std::vector<std::string>& shots, int exposureCount,
                                  const WhiteBalanceGains& gains,
                                  std::vector<cv::Mat> decoded = {});

}  // namespace velmora
