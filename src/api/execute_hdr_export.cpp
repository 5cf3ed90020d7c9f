// Export of the HDR stitch.
#include "api/export_support.h"
#include "fusion/hdr_stitch.h"
#include "velmora.h"

extern "C" VELMORA_API void ZEMU_ExecuteOptFlowStitchHDRHandle(void* h, const char** shots,
                                                               const char* outputPath,
                                                               char videoFlag, float red,
                                                               float green, float blue,
                                                               int exposureCount) {
  velmora::withStitchHandle(h, __func__, [&](velmora::StitchHandle& handle) {
    velmora::HdrStitchRequest request;
    request.shots = velmora::bracketSlotsFromHost(shots);
    request.outputPath = velmora::requireText(outputPath, "output path");
    request.withVideo = videoFlag != 0;
    request.gains = velmora::WhiteBalanceGains{red, green, blue};
    request.exposureCount = exposureCount;
    handle.code = velmora::executeHdrStitch(handle.camera(velmora::Camera::Up),
                                            handle.camera(velmora::Camera::Down),
                                            std::move(request), handle.pendingIsp);
  });
}
