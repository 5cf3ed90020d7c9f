// Export of the colour (ISP) step.
#include "api/export_support.h"
#include "tools/isp_step.h"
#include "velmora.h"

extern "C" {

VELMORA_API void ZEMU_ExecuteISPHandle(void* h, const char* name) {
  velmora::withStitchHandle(h, __func__, [&](velmora::StitchHandle& handle) {
    velmora::executeIsp(handle.pendingIsp, handle.camera(velmora::Camera::Up).geometry,
                        velmora::requireText(name, "image name"));
    handle.code = velmora::kStatusOk;
  });
}

}  // extern "C"
