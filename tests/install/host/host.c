/* A host as a user writes it, built against an installed Velmora (find_package or pkg-config).
 *
 *   velmora_host <work folder>
 *
 * Writes the two cameras' configuration files into the work folder, initialises both cameras
 * on a small grid (the projection tables are cached in the same folder), stitches six generated
 * Up shots into up.ppm, checks the status codes and the panorama's size, and that a lower-case
 * configuration name is refused. Prints "host ok" and exits 0 when everything held; otherwise
 * names the first surprise on standard error and exits 1.
 */
#include <stdio.h>

#include "velmora.h"

/* Shots of 96 x 64 pixels; panoramas of 128 x 64 cells. */
enum { kShotWidth = 96, kShotHeight = 64, kGridWidth = 128, kGridHeight = 64 };

/* The six shots, Up.txt, Down.txt, up.txt and the panorama, in the work folder. */
enum { kUp = 6, kDown, kWrong, kPanorama, kPaths };
static char paths[kPaths][1024];
static const char* work;

static int fail(const char* what) {
  fprintf(stderr, "host: %s\n", what);
  return 1;
}

static int joinPath(int index, const char* folder, const char* name) {
  int length = snprintf(paths[index], sizeof paths[index], "%s/%s", folder, name);
  return length > 0 && (size_t)length < sizeof paths[index];
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
static int writeShot(const char* path, int index) {
  int x, y;
  FILE* file = fopen(path, "wb");
  if (file == NULL) return 0;
  fprintf(file, "P6\n%d %d\n255\n", kShotWidth, kShotHeight);
  for (y = 0; y < kShotHeight; ++y) {
    for (x = 0; x < kShotWidth; ++x) {
      int checker = ((x / 8 + y / 8 + index) % 2) * 60;
      fputc((x * 2 + index * 40) % 256, file);
      fputc((y * 3 + checker) % 256, file);
      fputc((x + y + checker) % 256, file);
    }
  }
  return fclose(file) == 0;
}

/* The panorama is a binary PPM of the grid's size. */
static int panoramaHasTheGridSize(const char* path) {
  int width = 0, height = 0, read;
  FILE* file = fopen(path, "rb");
  if (file == NULL) return 0;
  read = fscanf(file, "P6 %d %d", &width, &height);
  fclose(file);
  return read == 2 && width == kGridWidth && height == kGridHeight;
}

static void init(void* stitch, int config) {
  ZEMU_InitOptFlowStitchHandle(stitch, paths[config], work, kShotWidth, kShotHeight, kGridWidth,
                               kGridHeight);
}

int main(int argc, char** argv) {
  const char* shots[6];
  void* stitch;
  int k;

  if (argc != 2) return fail("usage: velmora_host <work folder>");
  work = argv[1];
  for (k = 0; k < 6; ++k) {
    char name[32];
    snprintf(name, sizeof name, "up%d.ppm", k);
    if (!joinPath(k, work, name) || !writeShot(paths[k], k)) return fail("cannot write shots");
    shots[k] = paths[k];
  }
  if (!joinPath(kUp, work, "Up.txt") || !joinPath(kDown, work, "Down.txt") ||
      !joinPath(kWrong, work, "up.txt") || !joinPath(kPanorama, work, "up.ppm"))
    return fail("work folder path too long");
  if (!writeConfiguration(paths[kUp], 0.35) || !writeConfiguration(paths[kDown], -0.35))
    return fail("cannot write the camera configurations");

  stitch = ZEMU_CreateOptFlowStitchHandle();
  if (stitch == NULL) return fail("no stitch handle");
  init(stitch, kUp);
  init(stitch, kDown);
  if (ZEMU_GetOptFlowStitchCode(stitch) != 0u) return fail("Init of the cameras failed");
  ZEMU_ExecuteOptFlowStitchHandle(stitch, paths[kUp], shots, paths[kPanorama], 1.0f, 1.0f, 1.0f);
  if (ZEMU_GetOptFlowStitchCode(stitch) != 0u) return fail("the stitch failed");
  if (!panoramaHasTheGridSize(paths[kPanorama])) return fail("no panorama of the grid's size");
  /* The camera is chosen by the file name: a lower-case "up.txt" names no camera. */
  init(stitch, kWrong);
  if (ZEMU_GetOptFlowStitchCode(stitch) != 4294967295u) return fail("bad path not reported");
  ZEMU_DestroyOptFlowStitchHandle(stitch);
  puts("host ok");
  return 0;
}
