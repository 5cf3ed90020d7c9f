// The colour step's work list: panoramas that HDR stitches wrote and left for the colour step.
#pragma once

#include <map>
#include <string>

namespace velmora {

// Final image path -> intermediate image awaiting the colour step, visited in key order.
using PendingIspTable = std::map<std::string, std::string>;

}  // namespace velmora
