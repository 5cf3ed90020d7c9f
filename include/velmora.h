/*
 * Velmora: panoramas from a rotating two-camera rig.
 *
 * The whole interface is thirteen flat functions over two opaque handle kinds:
 *
 *   stitch handle: Create, Init (once per camera), Execute..., GetCode, Destroy
 *   video handle:  Create, Init, Execute, GetCode, Destroy
 *
 * No function returns an outcome of its own: every Init and Execute stores a status code in its
 * handle, read back with the matching GetCode function:
 *
 *    0  the operation completed
 *   -1  a detected failure (the reason is one line on standard error) or an unexpected error
 *       ("unknow error.")
 *   -2  the operation ran out of memory ("bad_alloc caught: ...")
 *
 * GetCode returns the code as an unsigned 32-bit value, so -1 reads as 4294967295. No exception
 * ever leaves the library. Progress goes to standard output, failures to standard error, one line
 * per message.
 *
 * Threads: every call runs on the caller's thread and starts worker threads of its own, all of
 * them joined before it returns. A handle is not locked: use one handle from one thread at a time.
 * Passing a null handle is harmless: Init and Execute print one line on standard error and
 * return, GetCode returns 4294967295, Destroy does nothing.
 */
#ifndef VELMORA_H
#define VELMORA_H

#if defined(_WIN32)
#if defined(VELMORA_BUILDING)
#define VELMORA_API __declspec(dllexport)
#else
#define VELMORA_API __declspec(dllimport)
#endif
#else
#define VELMORA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Stitch handle ------------------------------------------------------------------------ */

/* Creates a stitch handle. Returns null only when memory is exhausted. */
VELMORA_API void* ZEMU_CreateOptFlowStitchHandle(void);

/*
 * Initialises one camera of the rig on the handle.
 *
 * configPath  camera configuration text; its last path component selects the camera: "Up."
 *             (e.g. ".../Up.txt") is the upper camera, anything beginning with "D" the lower one.
 * tableDir    directory of the projection table cache ("table_Up.bin", "table_Down.bin"), given
 *             without a trailing "/". A missing or short cache file is computed and written.
 * width, height        the camera's shot size in pixels.
 * outWidth, outHeight  the camera's panorama grid.
 *
 * The Up camera prints the version banner first. On success prints "Init UpCam done." (or
 * "Init DownCam done.") and the separator line, and leaves the status code untouched. An
 * unrecognised path prints "Configure path:<path> error." and sets -1; a table that can be neither
 * loaded nor built (no readable configuration, unwritable directory) sets -1 with one line.
 */
VELMORA_API void ZEMU_InitOptFlowStitchHandle(void* h, const char* configPath, const char* tableDir,
                                              int width, int height, int outWidth, int outHeight);

/* Stitches the six single-exposure shots of one camera into a framed panorama at outputPath. */
VELMORA_API void ZEMU_ExecuteOptFlowStitchHandle(void* h, const char* configPath,
                                                 const char** imagePaths, const char* outputPath,
                                                 float gain1, float gain2, float gain3);

/* Fuses and stitches bracketed shots of the upper camera (three slots per head position). */
VELMORA_API void ZEMU_ExecuteOptFlowStitchHDRHandle(void* h, const char** shots,
                                                    const char* outputPath, char videoFlag,
                                                    float red, float green, float blue,
                                                    int exposureCount);

/* Re-stitches a bracketed shot set and repairs host-given rectangles from single shots. */
VELMORA_API void ZEMU_ExecutePanoRepairHandle(void* h, const char** shots, const char* outputPath,
                                              const int* lefts, const int* tops, const int* widths,
                                              const int* heights, int count, float red, float green,
                                              float blue);

/*
 * Runs the colour step for the panorama that an HDR stitch on this handle left pending under the
 * output path `name` (compared whole and case-sensitively). Works in the current directory: it
 * copies ./asset/satuHigh.pp3 (saturation measure above 0.5) or ./asset/satuLow.pp3 to
 * ./asset/isp_minion.pp3, runs "isp.bat isp_minion.pp3 <name> <intermediate>", deletes the
 * intermediate image and rewrites the script's result at `name` with black bands of
 * int(0.12 x panorama height) rows above and below, as JPEG quality 85. A name that is not
 * pending prints "<name> not found." and still sets 0. Sets -1 when the intermediate image cannot
 * be read or the script left no image of the panorama's width at `name`. (A Linux isp.bat over
 * rawtherapee-cli ships in share/isp/; see the README.)
 */
VELMORA_API void ZEMU_ExecuteISPHandle(void* h, const char* name);

/* The status code of the handle's last operation (see above). */
VELMORA_API unsigned int ZEMU_GetOptFlowStitchCode(void* h);

/* Releases the handle and everything it holds. Null is accepted and ignored. */
VELMORA_API void ZEMU_DestroyOptFlowStitchHandle(void* h);

/* ---- Video handle ------------------------------------------------------------------------- */

/* Creates a video handle. Returns null only when memory is exhausted. */
VELMORA_API void* ZEMU_CreateVideoStitchHandle(void);

/*
 * Records the upper camera's configuration path and table directory and four sizes: a4 and a5
 * are the camera's shot size (width, height), a6 and a7 the panorama grid (width, height).
 * Never fails on its own; touches the status code only when an unexpected error occurs.
 */
VELMORA_API void ZEMU_InitVideoStitchHandle(void* h, const char* modelConfigPath,
                                            const char* tableDir, int a4, int a5, int a6, int a7);

/*
 * Grabs the frame one second into the rig video with ffmpeg (written next to the video as
 * videoPath + ".jpg" and deleted again), projects its scene region with the upper camera's model
 * onto the grid of the panorama at panoramaPath (null or empty: no panorama; its size, or 0 x 0,
 * becomes the handle's panorama size), stores 1.0 in *outA and 3.0 in *outB, and runs the
 * external stitcher "zemu-ffmpeg-velmora" on the video, named after outputPath's stem and folder.
 * Runs of the external stitcher never overlap within the process. The status code is left
 * untouched on success; -1 when no frame could be grabbed, the frame is smaller than
 * 3814 x 2846, the stored shot size does not fit the frame canvas, or a path or out pointer is
 * null. reserved1 and reserved2 are not used.
 */
VELMORA_API void ZEMU_ExecuteVideoStitchHandle(void* h, const char* panoramaPath,
                                               const char* videoPath, const char* outputPath,
                                               void* reserved1, void* reserved2, float* outA,
                                               float* outB);

/* The status code of the handle's last failed operation; 0 until one fails. */
VELMORA_API unsigned int ZEMU_GetVideoStitchCode(void* h);

/* Releases the handle. Null is accepted and ignored. */
VELMORA_API void ZEMU_DestroyVideoStitchHandle(void* h);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_H */
