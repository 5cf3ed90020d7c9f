/* A host written in C, linked against libvelmora.so: the header compiles as C and the library
 * loads and drives both handle kinds. Exits non-zero on the first surprise. */
#include <stdio.h>

#include "velmora.h"

int main(void) {
  void* stitch = ZEMU_CreateOptFlowStitchHandle();
  void* video = ZEMU_CreateVideoStitchHandle();
  if (stitch == NULL || video == NULL) return 1;
  if (ZEMU_GetOptFlowStitchCode(stitch) != 0u) return 2;
  /* A configuration path that names no camera is a detected failure: code -1. */
  ZEMU_InitOptFlowStitchHandle(stitch, "/nowhere/camera.txt", "/nowhere", 8, 8, 8, 4);
  if (ZEMU_GetOptFlowStitchCode(stitch) != 0xFFFFFFFFu) return 3;
  ZEMU_InitVideoStitchHandle(video, "/nowhere/Up.txt", "/nowhere", 8, 8, 8, 4);
  if (ZEMU_GetVideoStitchCode(video) != 0u) return 4;
  if (ZEMU_GetOptFlowStitchCode(NULL) != 0xFFFFFFFFu) return 5;
  ZEMU_DestroyOptFlowStitchHandle(stitch);
  ZEMU_DestroyVideoStitchHandle(video);
  ZEMU_DestroyOptFlowStitchHandle(NULL);
  puts("c host ok");
  return 0;
}
