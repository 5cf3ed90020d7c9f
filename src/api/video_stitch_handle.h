// The state behind the video handle.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

struct VideoStitchHandle {
  // Filled by Init from its sixth, seventh, fifth and fourth arguments, in that order; the video
  // stitch overwrites the panorama size with the size of the panorama it reads.
  int32_t panoramaWidth = 0;
  int32_t panoramaHeight = 0;
  int32_t firstParameter = 0;
  int32_t secondParameter = 0;
  std::string modelConfigPath;
  std::string tableDir;
  int32_t code = 0;
};

}  // namespace velmora
