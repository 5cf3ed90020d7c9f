// Arbitrary bytes as a projection table cache file, then a projection through whatever was
// loaded: no record may make the projection read outside the shot.
#include <cstddef>
#include <cstdint>

#include "fuzz_scratch.h"
#include "rig/camera_model.h"
#include "rig/projection.h"
#include "rig/table_cache.h"

using namespace velmora;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  // The first four bytes choose the shot and grid sizes, small enough for a fast run.
  CameraGeometry geometry;
  geometry.size1 = 1 + data[0] % 40;
  geometry.size2 = 1 + data[1] % 40;
  geometry.outWidth = 1 + data[2] % 32;
  geometry.outHeight = 1 + data[3] % 16;
  geometry.lensSelector = kUpLens;
  static const std::string path = fuzzing::scratchFile("table_Up.bin");
  fuzzing::writeBytes(path, data + 4, size - 4);

  CameraModel model(geometry);
  if (!loadTable(model, path)) return 0;  // short files are not trusted
  cv::Mat shot(static_cast<int>(geometry.size2), static_cast<int>(geometry.size1), CV_8UC3);
  cv::randu(shot, 0, 256);
  const cv::Mat projected = projectShot(shot, model.table(), geometry);
  if (projected.rows != static_cast<int>(geometry.outHeight) ||
      projected.cols != static_cast<int>(geometry.outWidth)) {
    __builtin_trap();
  }
  return 0;
}
