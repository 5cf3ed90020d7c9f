// The projection tables a batch needs, prepared once before its captures run (the library
// would otherwise have every concurrent capture compute the same table).
#pragma once

#include <string>
#include <vector>

#include "velmora/batch_manifest.h"

namespace velmora::tool {

// Initialises each camera the captures use (the manifest has checked that all captures of a
// camera agree on its calibration, shot size and grid) unless its table file in `tableDir`
// already has the grid's size. Returns false, after the library's and the tool's lines on
// standard error, when an Init fails.
bool prepareTables(const std::vector<CaptureRecord>& captures, const std::string& tableDir);

}  // namespace velmora::tool
