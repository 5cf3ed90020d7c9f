// Arbitrary bytes as a camera configuration text: the reader must take whatever it can and the
// table computation must cope with whatever numbers came out (huge, negative, not a number).
#include <cstddef>
#include <cstdint>

#include "common/status.h"
#include "fuzz_scratch.h"
#include "rig/camera_config.h"
#include "rig/camera_model.h"

using namespace velmora;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = fuzzing::scratchFile("Up.txt");
  fuzzing::writeBytes(path, data, size);

  for (uint32_t lens : {kUpLens, kDownLens}) {
    CameraModel model(CameraGeometry{48, 32, 24, 12, lens});
    if (!model.readConfiguration(path)) __builtin_trap();  // the file exists
    try {
      model.computeTable(1);
    } catch (const Failure&) {
      continue;  // refused configurations are fine; crashes and undefined behaviour are not
    }
    const cv::Mat& table = model.table();
    if (table.rows != 12 || table.cols != 24 || table.type() != CV_32FC2) __builtin_trap();
  }
  return 0;
}
