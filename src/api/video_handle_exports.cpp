// Lifecycle exports of the video handle: create, init, code, destroy.
#include <new>

#include "api/export_support.h"
#include "velmora.h"

using velmora::VideoStitchHandle;

extern "C" {

VELMORA_API void* ZEMU_CreateVideoStitchHandle(void) {
  return new (std::nothrow) VideoStitchHandle();
}

VELMORA_API void ZEMU_InitVideoStitchHandle(void* h, const char* modelConfigPath,
                                            const char* tableDir, int a4, int a5, int a6, int a7) {
  velmora::withVideoHandle(h, __func__, [&](VideoStitchHandle& handle) {
    handle.modelConfigPath = velmora::requireText(modelConfigPath, "model configuration path");
    handle.tableDir = velmora::requireText(tableDir, "table directory");
    handle.panoramaWidth = a6;
    handle.panoramaHeight = a7;
    handle.firstParameter = a5;
    handle.secondParameter = a4;
  });
}

VELMORA_API unsigned int ZEMU_GetVideoStitchCode(void* h) {
  if (h == nullptr) return velmora::kNullHandleCode;
  return static_cast<unsigned int>(static_cast<VideoStitchHandle*>(h)->code);
}

VELMORA_API void ZEMU_DestroyVideoStitchHandle(void* h) {
  delete static_cast<VideoStitchHandle*>(h);
}

}  // extern "C"
