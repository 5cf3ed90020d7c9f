// Export of the colour (ISP) step.
#include "api/export_support.h"
#include "tools/isp_step.h"
#include "velmora.h"

extern "C" {

VELMORA_API void ZEMU_ExecuteISPHandle(void* h, const char* name) {
  velmora::withStitchHandle(h, __func__, [&](velmora::StitchHandle& handle) {
    velmora::executeIsp(handle, velmora::requireText(name, "image name"));
  });
}

}  // extern "C"
