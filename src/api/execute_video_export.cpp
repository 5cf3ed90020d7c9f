// Export of the video stitch.
#include "api/export_support.h"
#include "tools/video_stitch.h"
#include "velmora.h"

extern "C" {

VELMORA_API void ZEMU_ExecuteVideoStitchHandle(void* h, const char* panoramaPath,
                                               const char* videoPath, const char* outputPath,
                                               void* /*reserved1*/, void* /*reserved2*/,
                                               float* outA, float* outB) {
  velmora::withVideoHandle(h, __func__, [&](velmora::VideoStitchHandle& handle) {
    velmora::VideoStitchRequest request;
    request.panoramaPath = panoramaPath == nullptr ? std::string() : std::string(panoramaPath);
    request.videoPath = velmora::requireText(videoPath, "video path");
    request.outputPath = velmora::requireText(outputPath, "output path");
    request.outA = outA;
    request.outB = outB;
    if (!velmora::executeVideoStitch(handle.upperCamera(), request, handle.panoramaWidth,
                                     handle.panoramaHeight)) {
      handle.code = velmora::kStatusFailure;
    }
  });
}

}  // extern "C"
