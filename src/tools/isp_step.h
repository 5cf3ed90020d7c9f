// The colour (ISP) step for a panorama that an HDR stitch left pending.
#pragma once

#include <string>

#include "rig/camera_model.h"
#include "tools/pending_isp.h"

namespace velmora {

// Colour-processes the pending panorama whose final path is `name` (compared whole and
// case-sensitively with the keys of `pending`), working relative to the current directory; `up`
// is the Up camera's geometry, whose grid the panorama has:
//   - reads the intermediate image, prints "satu = <measure>" and installs the profile chosen
//     by the measure as ./asset/isp_minion.pp3;
//   - prints the ISP section line, runs "isp.bat isp_minion.pp3 <name> <intermediate>", deletes
//     the intermediate image and prints "ISP spend time : <seconds>";
//   - reads the script's result at `name`, adds black bands of blackBandRows(up.outHeight) rows
//     and writes it back to `name` as JPEG quality 85.
// An unknown name prints "<name> not found." and runs nothing. The entry stays in the table.
// Ends with "ISP process finished." and the separator; the caller then stores status 0.
// Throws Failure (status -1 through the export's guard) when the intermediate image cannot be
// read, when the script left no readable image at `name`, when that image is not up.outWidth
// columns wide, or when it cannot be written back.
void executeIsp(const PendingIspTable& pending, const CameraGeometry& up, const std::string& name);

}  // namespace velmora
