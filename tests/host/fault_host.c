/* A host process for the fault tests: initialises one camera and, given an output path and six
 * shots, stitches them. Its last line on standard output is "codes <init> <stitch>", the status
 * codes as signed numbers (the stitch's 0 when it did not run); it exits 0 when both are 0.
 *
 *   velmora_fault_host CONFIG TABLE_DIR WIDTH HEIGHT GRID_WIDTH GRID_HEIGHT [OUTPUT SHOT x 6] */
#include <stdio.h>
#include <stdlib.h>

#include "velmora.h"

int main(int argc, char** argv) {
  if (argc != 7 && argc != 14) {
    fputs(
        "usage: velmora_fault_host CONFIG TABLE_DIR WIDTH HEIGHT GRID_WIDTH GRID_HEIGHT "
        "[OUTPUT SHOT0 ... SHOT5]\n",
        stderr);
    return 2;
  }
  void* handle = ZEMU_CreateOptFlowStitchHandle();
  if (handle == NULL) return 2;
  ZEMU_InitOptFlowStitchHandle(handle, argv[1], argv[2], atoi(argv[3]), atoi(argv[4]),
                               atoi(argv[5]), atoi(argv[6]));
  const int init = (int)ZEMU_GetOptFlowStitchCode(handle);
  int stitch = 0;
  if (argc == 14 && init == 0) {
    ZEMU_ExecuteOptFlowStitchHandle(handle, argv[1], (const char**)(argv + 8), argv[7], 1.0f, 1.0f,
                                    1.0f);
    stitch = (int)ZEMU_GetOptFlowStitchCode(handle);
  }
  ZEMU_DestroyOptFlowStitchHandle(handle);
  printf("codes %d %d\n", init, stitch);
  return init != 0 || stitch != 0;
}
