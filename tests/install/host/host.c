/* A host as a user writes it, built against an installed Velmora (find_package or pkg-config).
 *
 *   velmora_host <work folder>
 *
 * Writes the two cameras' configuration files into the work folder, initialises both cameras
 * on a small grid (the projection tables are cached in the same folder), stitches six generated
 * Up shots into up.ppm, checks the status codes, the cached tables and the panorama's size, and
 * drives a video handle through its lifecycle. Prints "host ok" and exits 0 when everything
 * held; otherwise names the first surprise on standard error and exits 1.
 */
#include <stdio.h>

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

/* Writes a shot as binary PPM: a smooth gradient with a coarse checker, different per shot. */
static int writeShot(const char* path, int width, int height, int index) {
  int x, y;
  FILE* file = fopen(path, "wb");
  if (file == NULL) return 0;
  fprintf(file, "P6\n%d %d\n255\n", width, height);
  for (y = 0; y < height; ++y) {
    for (x = 0; x < width; ++x) {
      int checker = ((x / 8 + y / 8 + index) % 2) * 60;
      fputc((x * 2 + index * 40) % 256, file);
      fputc((y * 3 + checker) % 256, file);
      fputc((x + y + checker) % 256, file);
    }
  }
  return fclose(file) == 0;
}

/* Checks the stitched panorama: a binary PPM of the grid's size, black in its top row (the
 * polar band) and not black along its middle row (the stitched shots). */
static int panoramaLooksRight(const char* path) {
  static unsigned char pixels[kGridHeight][kGridWidth][3];
  int width = 0, height = 0, depth = 0, x, c, topLit = 0, middleLit = 0;
  size_t got;
  FILE* file = fopen(path, "rb");
  if (file == NULL) return 0;
  if (fscanf(file, "P6 %d %d %d", &width, &height, &depth) != 3 || fgetc(file) == EOF ||
      width != kGridWidth || height != kGridHeight || depth != 255) {
    fclose(file);
    return 0;
  }
  got = fread(pixels, 1, sizeof pixels, file);
  fclose(file);
  if (got != sizeof pixels) return 0;
  for (x = 0; x < kGridWidth; ++x) {
    for (c = 0; c < 3; ++c) {
      topLit += pixels[0][x][c] != 0;
      middleLit += pixels[kGridHeight / 2][x][c] != 0;
    }
  }
  return topLit == 0 && middleLit > 0;
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
  char shotPaths[6][1024], panorama[1024];
  const char* shots[6];
  int k;
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
      !joinPath(downTable, sizeof downTable, work, "table_Down.bin") ||
      !joinPath(panorama, sizeof panorama, work, "up.ppm"))
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

  /* Six Up shots as stored by the camera, 96 x 64, stitched into a 128 x 64 panorama. */
  for (k = 0; k < 6; ++k) {
    char name[32];
    snprintf(name, sizeof name, "up%d.ppm", k);
    if (!joinPath(shotPaths[k], sizeof shotPaths[k], work, name) ||
        !writeShot(shotPaths[k], kShotWidth, kShotHeight, k))
      return fail("cannot write the shots");
    shots[k] = shotPaths[k];
  }
  ZEMU_ExecuteOptFlowStitchHandle(stitch, upConfig, shots, panorama, 1.0f, 1.0f, 1.0f);
  if (ZEMU_GetOptFlowStitchCode(stitch) != 0u) return fail("the stitch failed");
  if (!panoramaLooksRight(panorama))
    return fail("the panorama is missing, not of the grid's size, or without its bands or shots");

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
