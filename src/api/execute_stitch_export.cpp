// Export of the single-exposure stitch.
#include "api/export_support.h"
#include "api/single_stitch.h"
#include "velmora.h"

extern "C" VELMORA_API void ZEMU_ExecuteOptFlowStitchHandle(void* h, const char* configPath,
                                                            const char** imagePaths,
                                                            const char* outputPath, float gain1,
                                                            float gain2, float gain3) {
  velmora::withStitchHandle(h, __func__, [&](velmora::StitchHandle& handle) {
    velmora::SingleStitchRequest request;
    request.configPath = velmora::requireText(configPath, "configuration path");
    if (imagePaths == nullptr) throw velmora::Failure("Missing shot paths: null pointer.");
    for (int k = 0; k < 6; ++k) {
      request.imagePaths.push_back(imagePaths[k] != nullptr ? imagePaths[k] : "");
    }
    request.outputPath = velmora::requireText(outputPath, "output path");
    request.redGain = gain1;
    request.greenGain = gain2;
    request.blueGain = gain3;
    velmora::executeSingleStitch(handle, request);
  });
}
