// The bracketed shot set of the HDR stitch and the repair, as the tool takes it: the shot paths
// in head-position order, or a folder the simulator wrote with brackets.
#pragma once

#include <string>
#include <vector>

namespace velmora::tool {

inline constexpr int kHeadPositions = 6;
inline constexpr int kSlotsPerPosition = 3;

struct BracketShots {
  // 18 slots: exposure e of head position p at p x 3 + e; slots beyond the exposure count empty.
  std::vector<std::string> slots;
  int exposureCount = 0;
  // The folder the shots were found in, or empty when they were given one by one.
  std::string folder;
};

// Resolves the command line's shots:
//   - one folder: the upper camera's bracket files the simulator writes there, Up_<p>_<e> with
//     the extension .jpg, .jpeg or .png, e counted from 0 for as long as files exist; every
//     position must hold the same number of exposures, 2 or 3;
//   - otherwise 12 or 18 existing files, position by position (p0e0 p0e1 [p0e2] p1e0 ...).
// `exposureCount` 2 or 3 demands that count; 0 takes it from the shots. Throws
// std::invalid_argument with the reason when the shots do not form such a set.
BracketShots resolveBracketShots(const std::vector<std::string>& arguments, int exposureCount);

// The configuration path given with `option`, or else the file `fileName` ("Up.txt") in the
// shots' folder. Throws std::invalid_argument when neither is there.
std::string configurationFor(const std::string& given, const BracketShots& shots,
                             const std::string& fileName, const std::string& option);

}  // namespace velmora::tool
