// Lifecycle exports of the stitch handle: create, init, code, destroy.
#include <new>

#include "api/camera_init.h"
#include "api/export_support.h"
#include "velmora.h"

using velmora::StitchHandle;

extern "C" {

VELMORA_API void* ZEMU_CreateOptFlowStitchHandle(void) {
  return new (std::nothrow) StitchHandle();
}

VELMORA_API void ZEMU_InitOptFlowStitchHandle(void* h, const char* configPath, const char* tableDir,
                                              int width, int height, int outWidth, int outHeight) {
  velmora::withStitchHandle(h, __func__, [&](StitchHandle& handle) {
    velmora::CameraInitRequest request;
    request.configPath = velmora::requireText(configPath, "configuration path");
    request.tableDir = velmora::requireText(tableDir, "table directory");
    request.width = width;
    request.height = height;
    request.outWidth = outWidth;
    request.outHeight = outHeight;
    velmora::initCamera(handle, request);
  });
}

VELMORA_API unsigned int ZEMU_GetOptFlowStitchCode(void* h) {
  if (h == nullptr) return velmora::kNullHandleCode;
  return static_cast<unsigned int>(static_cast<StitchHandle*>(h)->code);
}

VELMORA_API void ZEMU_DestroyOptFlowStitchHandle(void* h) {
  delete static_cast<StitchHandle*>(h);
}

}  // extern "C"
