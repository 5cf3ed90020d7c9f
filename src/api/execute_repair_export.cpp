// Export of the panorama repair.
#include "api/export_support.h"
#include "repair/panorama_repair.h"
#include "velmora.h"

extern "C" VELMORA_API void ZEMU_ExecutePanoRepairHandle(void* h, const char** shots,
                                                         const char* outputPath, const int* lefts,
                                                         const int* tops, const int* widths,
                                                         const int* heights, int count, float red,
                                                         float green, float blue) {
  velmora::withStitchHandle(h, __func__, [&](velmora::StitchHandle& handle) {
    velmora::RepairRequest request;
    request.shots = velmora::bracketSlotsFromHost(shots);
    request.outputPath = velmora::requireText(outputPath, "output path");
    if (count > 0 &&
        (lefts == nullptr || tops == nullptr || widths == nullptr || heights == nullptr)) {
      throw velmora::Failure("Missing repair rectangles: null pointer.");
    }
    for (int i = 0; i < count; ++i) {
      request.rectangles.emplace_back(lefts[i], tops[i], widths[i], heights[i]);
    }
    request.gains = velmora::WhiteBalanceGains{red, green, blue};
    handle.code = velmora::executePanoRepair(handle.camera(velmora::Camera::Up), request);
  });
}
