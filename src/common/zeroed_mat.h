// Images whose memory starts out zero without being written: large blocks come from the
// operating system as untouched zero pages, so an image that is mostly zero (a projection table
// sees about a quarter of its grid) costs memory and page faults only where it is written.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// A continuous rows x cols image of `type`, every byte 0. The image owns its memory like any
// other Mat (copies share it; it is freed with the last of them). Throws std::bad_alloc when the
// memory cannot be had.
cv::Mat zeroedMat(int rows, int cols, int type);

}  // namespace velmora
