/* A host as a user writes it, built against an installed Velmora (find_package or pkg-config).
 *
 *   velmora_host <work folder>
 *
 * Writes the two cameras' configuration files into the work folder, initialises both cameras
 * on a small grid (the projection tables are cached in the same folder), checks the status codes
 * and the cached tables, and drives a video handle through its lifecycle. Prints "host ok" and
 * exits 0 when everything held; otherwise names the first surprise on standard error and exits 1.
 */
#include <stdio.h>
#include <string.h>

#include "velmora.h"

/* Shots of 96 x 64 pixels; panoramas of 128 x 64 cells. */
enum { kShotWidth = 96, kShotHeight = 64, kGridWidth = 128, kGridHeight = 64 };

static int fail(const char* what) {
  fprintf(stderr, "host: %s\n", what);
  return 1;
}

static int joinPath(char* out, size_t size, const char* folder, const char* name) {
  int length = snprintf(out, size, "%s/%s", folder, name);
  return length > 0 && (size_t)length < size;
}

/* A camera configuration: nine label/number pairs in the library's order. */
static int writeConfiguration(const char* path, double rotX) {
  FILE* file = fopen(path, "w");
  if (file == NULL) return 0;
  fprintf(file, "focal 31\ncenterX 32\ncenterY 48\nrotX %.2f\nextra1 0\nrotZ 0\n", rotX);
  fprintf(file, "extra2 0\nextra3 0\nextra4 0\n");
  return fclose(file) == 0;
}

/* Size of a file in bytes, or -1 when it cannot be opened. */
static long fileSize(const char* path) {
  long size;
  FILE* file = fopen(path, "rb");
  if (file == NULL) return -1;
  if (fseek(file, 0, SEEK_END) != 0) {
    fclose(file);
    return -1;
  }
  size = ftell(file);
  fclose(file);
  return size;
}

int main(int argc, char** argv) {
  char upConfig[1024], downConfig[1024], wrongConfig[1024], upTable[1024], downTable[1024];
  const long tableBytes = 8L * kGridWidth * kGridHeight;
  const char* work;
  void* stitch;
  void* video;

  if (argc != 2) return fail("usage: velmora_host <work folder>");
  work = argv[1];
  if (!joinPath(upConfig, sizeof upConfig, work, "Up.txt") ||
      !joinPath(downConfig, sizeof downConfig, work, "Down.txt") ||
      !joinPath(wrongConfig, sizeof wrongConfig, work, "up.txt") ||
      !joinPath(upTable, sizeof upTable, work, "table_Up.bin") ||
      !joinPath(downTable, sizeof downTable, work, "table_Down.bin"))
    return fail("work folder path too long");
  if (!writeConfiguration(upConfig, 0.35) || !writeConfiguration(downConfig, -0.35))
    return fail("cannot write the camera configurations");

  stitch = ZEMU_CreateOptFlowStitchHandle();
  if (stitch == NULL) return fail("no stitch handle");
  ZEMU_InitOptFlowStitchHandle(stitch, upConfig, work, kShotWidth, kShotHeight, kGridWidth,
                               kGridHeight);
  ZEMU_InitOptFlowStitchHandle(stitch, downConfig, work, kShotWidth, kShotHeight, kGridWidth,
                               kGridHeight);
  if (ZEMU_GetOptFlowStitchCode(stitch) != 0u) return fail("Init of the cameras failed");
  if (fileSize(upTable) != tableBytes || fileSize(downTable) != tableBytes)
    return fail("the cached projection tables are missing or have the wrong size");

  /* The camera is chosen by the file name: a lower-case "up.txt" names no camera. */
  ZEMU_InitOptFlowStitchHandle(stitch, wrongConfig, work, kShotWidth, kShotHeight, kGridWidth,
                               kGridHeight);
  if (ZEMU_GetOptFlowStitchCode(stitch) != 4294967295u) return fail("bad path not reported");
  ZEMU_DestroyOptFlowStitchHandle(stitch);

  video = ZEMU_CreateVideoStitchHandle();
  if (video == NULL) return fail("no video handle");
  ZEMU_InitVideoStitchHandle(video, upConfig, work, kShotWidth, kShotHeight, kGridWidth,
                             kGridHeight);
  if (ZEMU_GetVideoStitchCode(video) != 0u) return fail("video Init set a code");
  ZEMU_DestroyVideoStitchHandle(video);

  puts("host ok");
  return 0;
}
