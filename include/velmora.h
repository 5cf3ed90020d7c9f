/*
 * velmora.h: the C interface of libvelmora, panoramas from a rotating two-camera rig.
 *
 * The rig carries an upper ("Up") and a lower ("Down") camera on one head that turns in six
 * steps of 60 degrees; at every step each camera takes one shot, or a bracket of three
 * exposures. The library turns a camera's six shots into one equirectangular panorama file.
 *
 * ---- Handles and calling order ----------------------------------------------------------------
 *
 * Thirteen functions over two opaque handle kinds. A handle is the pointer its Create function
 * returned; the host owns it until it passes it to the matching Destroy function.
 *
 *   stitch handle  ZEMU_CreateOptFlowStitchHandle
 *                  ZEMU_InitOptFlowStitchHandle      once for the Up camera, once for the Down one
 *                  ZEMU_ExecuteOptFlowStitchHandle   single-exposure stitch of one camera
 *                  ZEMU_ExecuteOptFlowStitchHDRHandle  bracketed stitch of the Up camera
 *                  ZEMU_ExecuteISPHandle             colour step of an HDR panorama left pending
 *                  ZEMU_ExecutePanoRepairHandle      re-stitch and repair of marked rectangles
 *                  ZEMU_GetOptFlowStitchCode         status code of the last operation
 *                  ZEMU_DestroyOptFlowStitchHandle
 *   video handle   ZEMU_CreateVideoStitchHandle, ZEMU_InitVideoStitchHandle,
 *                  ZEMU_ExecuteVideoStitchHandle, ZEMU_GetVideoStitchCode,
 *                  ZEMU_DestroyVideoStitchHandle
 *
 * An Execute function uses what Init stored for the camera it works on (sizes, configuration
 * path, table folder), so Init that camera on the same handle first. Init may be repeated; the
 * last call for a camera wins.
 *
 * ---- Status codes -----------------------------------------------------------------------------
 *
 * No function returns an outcome of its own. Init and Execute store a status code in the handle,
 * read back with the handle's GetCode function:
 *
 *    0  the operation completed
 *   -1  a detected failure (the reason is one line on standard error), or an unexpected error,
 *       reported as "unknow error."
 *   -2  the operation ran out of memory, reported as "bad_alloc caught: <what>"
 *
 * GetCode returns the code as an unsigned 32-bit value: -1 reads as 4294967295 (0xFFFFFFFF) and
 * -2 as 4294967294. A new handle holds 0. Every stitch-handle Execute function stores 0 when it
 * completes; Init and the video handle's functions store a code only when they fail, so a
 * failure stays visible until the next stitch Execute completes (stitch handle) or for the
 * handle's whole life (video handle). Read the code after every call. No exception ever leaves
 * the library. Every file the library writes (images and table files) goes to a hidden
 * temporary file beside its path and is renamed into place, so the path holds either the whole
 * new file or what it held before (see "Files and paths").
 *
 * Arguments: a null handle is harmless (Init and Execute print "<function>: null handle." on
 * standard error and return, GetCode returns 4294967295, Destroy does nothing). A null path
 * where a path is required fails with "Missing <argument>: null pointer." and -1. Arrays are
 * read during the call only and stay the host's.
 *
 * ---- Console ----------------------------------------------------------------------------------
 *
 * The library writes to the process's standard output and standard error, one message per line,
 * each line flushed. Progress lines go to standard output, failures to standard error. There is
 * no log file and no verbosity setting. Lines every stitch operation uses:
 *
 *   "==================version-<version>=================="  the version banner, printed
 *                                       by every Up Init, with the library's version number
 *   "---------------------------------"  the separator, after every Init and every completed
 *                                       stitch operation
 *   "-----------------ISP-----------------"  entering a colour step
 *   durations, in seconds after a label such as "ISP spend time : " (whole milliseconds / 1000)
 *
 * Only the thread that called the function writes; lines of calls running on different handles
 * at once may interleave.
 *
 * ---- Files and paths --------------------------------------------------------------------------
 *
 * Paths are zero-terminated byte strings passed to the C library unchanged, with "/" as the
 * folder separator. Relative paths are taken from the process's current working directory; the
 * library never changes it. Paths are joined by plain concatenation: give folders without a
 * trailing "/".
 *
 * Camera configuration: one text file per camera, nine whitespace-separated label/number pairs.
 * Labels are free; the numbers, in order: focal length (pixels), optical centre column, optical
 * centre row, rotation about x (radians), unused, rotation about z (radians), unused, unused,
 * unused. Missing or malformed numbers read as 0 from the first bad one on.
 *
 * Projection table cache: "<table folder>/table_Up.bin" and "<table folder>/table_Down.bin",
 * 8 bytes per panorama grid cell (two little-endian 32-bit floats), no header. A file holding at
 * least a whole grid's worth of bytes is trusted as it is, so delete it after changing the
 * camera's configuration or grid size; a missing or shorter file is computed and written by the
 * stitch handle's Init and Execute. The video stitch uses "table_Up.bin" as it finds it and
 * writes one only when there is none, so a folder shared with a stitch handle keeps the stitch's
 * table. Processes and handles may share a table folder, also initialising the same camera at
 * the same moment: each writes the whole table and renames it into place.
 *
 * Writing images and tables: a write that fails (a full disk, a missing or read-only folder)
 * ends the call with -1 and "Write image: <path> error." or "Write table: <path> error."; the
 * path keeps what it held before and no temporary stays behind. A process killed while the
 * library writes leaves the path as it was, and may leave the hidden temporary
 * ".velmora-<process id>-<n>-<file name>" beside it. The library never reads such a file. Init
 * deletes those of its table file from the table folder once they have not been modified for an
 * hour (younger ones may be a concurrent writer's); those beside images are the host's to
 * delete.
 *
 * External programs (the colour step's "isp.bat", "ffmpeg", "zemu-ffmpeg-velmora") run as one
 * command line (on Linux through "/bin/sh -c"; on Windows as a process without a console window,
 * with "/" turned into "\") in the current working directory, with the caller's environment and
 * standard streams. A first word without "/" that names an executable file in the current
 * working directory runs that file; otherwise the command search path decides. The library
 * waits for each to end and does not look at its exit code: a failed tool shows as a missing
 * output.
 *
 * Images are read and written by file extension through OpenCV's image codecs. An input image
 * that is missing, not an image, or a JPEG or PNG file whose image ends early (before the end
 * marker after its scan data, or before its IEND chunk) counts as unreadable. Data after the
 * image's end, as cameras append it (padding, trailers, a video), is ignored.
 * Framed panoramas carry black bands of trunc(0.12 x grid height) rows above and below.
 *
 * ---- Threads ----------------------------------------------------------------------------------
 *
 * Every function runs on the caller's thread and returns when the work is done. Execute and Init
 * start worker threads of their own and join all of them before returning. A handle is not
 * locked: use one handle from one thread at a time. Different handles may be used from different
 * threads at once, with two limits: colour steps share "./asset/isp_minion.pp3" in the working
 * directory (give concurrent hosts separate directories), and runs of the external video
 * stitcher are serialised across the whole process.
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

/*
 * ZEMU_CreateOptFlowStitchHandle: a new stitch handle, with status code 0 and no pending colour
 * step. Returns null only when memory is exhausted. Release it with
 * ZEMU_DestroyOptFlowStitchHandle.
 */
VELMORA_API void* ZEMU_CreateOptFlowStitchHandle(void);

/*
 * ZEMU_InitOptFlowStitchHandle: prepares one camera of the rig on the handle.
 *
 * Arguments
 *   h           a stitch handle.
 *   configPath  the camera's configuration file. Its last path component names the camera: one
 *               beginning with "Up." (".../Up.txt") is the upper camera, one beginning with "D"
 *               (".../Down.txt") the lower one. The path must contain a "/".
 *   tableDir    folder of the projection table cache, without a trailing "/".
 *   width, height        the camera's shots in pixels, as stored in the files.
 *   outWidth, outHeight  the camera's panorama grid in cells, both above 0.
 *
 * Reads     configPath; tableDir + "/table_Up.bin" (Up) or "/table_Down.bin" (Down) when it
 *           holds a whole grid. With a usable cache file the configuration is not needed.
 * Writes    the table file, when it is missing or short: computed from the configuration and
 *           renamed into place, so a concurrent reader never sees part of it.
 * Prints    Up camera: the version banner, then "Init UpCam done." and the separator.
 *           Down camera: "Init DownCam done." and the separator.
 * Status    left as it was on success. -1 with one line on standard error:
 *             "Configure path:<configPath> error."  the name is neither "Up." nor "D..." (a
 *                                                  lower-case "up.txt" names no camera)
 *             "unknow error."                      configPath has no "/" or ends in "/"
 *             "Invalid panorama grid <w>x<h>."     outWidth or outHeight is not above 0
 *             "No camera configuration read: cannot compute the projection table."
 *                                                  configPath cannot be read and there is
 *                                                  no usable table file
 *             "Write table: <path> error."         the table folder is missing or read-only
 * Threads   computing a table runs on one worker thread per processor core.
 */
VELMORA_API void ZEMU_InitOptFlowStitchHandle(void* h, const char* configPath, const char* tableDir,
                                              int width, int height, int outWidth, int outHeight);

/*
 * ZEMU_ExecuteOptFlowStitchHandle: stitches the six single-exposure shots of one camera into a
 * framed panorama.
 *
 * Arguments
 *   h           a stitch handle on which this camera was initialised.
 *   configPath  the camera's configuration file; it names the camera as in Init.
 *   imagePaths  six shot paths in shooting order, 60 degrees apart. Each shot must have the
 *               size given to Init for this camera (Up shots are turned 90 degrees
 *               counter-clockwise inside the library, as the camera is mounted).
 *   outputPath  the panorama; the extension chooses the format (".jpg", ".png", ...).
 *   gain1, gain2, gain3  red, green and blue white-balance gains applied to every shot; they
 *               change colour but not brightness. 1.0f, 1.0f, 1.0f leaves the colours alone.
 *
 * Reads     configPath, the six shots, the camera's table file.
 * Writes    outputPath: outWidth x outHeight of the camera's Init, the stitched sphere between
 *           two black bands. The table file, when it is missing or short (as in Init).
 * Prints    "Optical Flow Stitch start.", "Stitch up cameras." or "Stitch down cameras.", and
 *           at the end "Optical flow stitch finished." and the separator.
 * Status    0 when the panorama is written. -1, nothing written, with one line on standard error:
 *             "Configure path:<configPath> error."  the path names no camera
 *             "Camera not initialised: call ZEMU_InitOptFlowStitchHandle with the Up
 *              configuration first." (or Down)     no Init for this camera on this handle
 *             "Read imgPath: <path> error."        the first shot that is unreadable or has
 *                                                  another size than Init's
 *             "Write image: <outputPath> error."   the panorama cannot be written
 *           -2 when memory runs out.
 * Threads   one worker per shot for the projection, then the stitch's flow and seam workers.
 */
VELMORA_API void ZEMU_ExecuteOptFlowStitchHandle(void* h, const char* configPath,
                                                 const char** imagePaths, const char* outputPath,
                                                 float gain1, float gain2, float gain3);

/*
 * ZEMU_ExecuteOptFlowStitchHDRHandle: fuses the bracketed shots of the Up camera position by
 * position and stitches the six fused shots.
 *
 * Arguments
 *   h           a stitch handle initialised for the Up camera (and the Down camera when
 *               videoFlag is set).
 *   shots       eighteen paths, three slots per head position: exposure e of position p at
 *               shots[p * 3 + e]. Slot 2 is the fusion's base exposure (its shadows are lifted
 *               and it alone fills areas where all three are over-exposed): pass the darkest
 *               exposure there, the middle one in slot 1 and the brightest in slot 0. Every
 *               shot has the Up camera's size given to Init.
 *   outputPath  the final panorama.
 *   videoFlag   0: stitch only, and leave the colour step pending (below). Non-zero: the video
 *               variant (below).
 *   red, green, blue  white-balance gains for every fused shot. When one exceeds 1.2 they are
 *               first normalised: divided by the green gain (when one gain is exactly 1, the
 *               other two are first scaled towards 1 so that the larger differs from 1 by 0.2).
 *               The "rgain: ..." line shows the gains in use.
 *   exposureCount  exposures per position; pass 3. With 2 every fusion lacks its base
 *               exposure and the call fails ("unknow error.", -1) without writing anything;
 *               other counts fail with "Exposure count must be 2 or 3, got <n>.".
 *
 * Without videoFlag
 *   Reads   the shots; the Up configuration and table file.
 *   Writes  outputPath + ".jpg": the stitched panorama, not yet framed, awaiting the colour step.
 *           The pair (outputPath, outputPath + ".jpg") is recorded in the handle; a later
 *           ZEMU_ExecuteISPHandle(h, outputPath) produces outputPath. Nothing else is written.
 * With videoFlag
 *   Also stitches the Down camera from the middle exposures (slot 1) along the Up camera's
 *   seams, matches its tones to a frame of the rig's video, runs the colour step at once and
 *   blends the Down camera's view into the middle of the Up panorama (a feathered rectangle at
 *   150 to 210 degrees of longitude). Both cameras need the same panorama grid, and shots[16]
 *   at least 4736 x 3324 pixels: the tone source is its region of 4000 x 3000 at (736, 324).
 *   Reads   additionally the Down configuration and table file, and the video
 *           <folder of shots[16]>/<first 14 characters of its file name>.mp4.
 *   Runs    "ffmpeg  -i <video> -ss 1 -f image2  -vframes 1 <video>.jpg -y" (the frame one second
 *           in, deleted after reading), then the colour step as ZEMU_ExecuteISPHandle describes
 *           it: profile chosen by saturation, then "isp.bat isp_minion.pp3 <outputPath>
 *           <outputPath>.jpg".
 *   Writes  outputPath + ".jpg" (handed to the script, then deleted) and outputPath: a JPEG of
 *           quality 85 whatever the extension, the grid plus the two black bands high.
 *
 * Prints    "Optical Flow Stitch start.", "rgain: <r> ggain: <g> bgain: <b>" (the gains in use),
 *           " HDR spend time : <s>" (fusion and projection), "Optical flow stitch spend time :
 *           <s>", and at the end "Optical flow stitch finished." and the separator. The video
 *           variant adds the tone match's "Bright diff rate: ...", "Mask diff rate: ..." lines,
 *           the ISP section line and "ISP spend time : <s>".
 * Status    0 when done. -1 with one line on standard error, the output not written:
 *             "Read imgPath: <path> error."        the first unreadable or wrongly sized shot
 *                                                  among the exposures in use
 *             "Camera not initialised: ..."        no Init of the Up (video: or Down) camera
 *             "Read video frame: <video>.jpg error."  no frame grabbed (after stitching)
 *             "Read ISP result: <outputPath> error."  the script left no image (video variant)
 *           -2 when memory runs out.
 * Threads   six fusion workers, one per position, then the stitch's workers.
 */
VELMORA_API void ZEMU_ExecuteOptFlowStitchHDRHandle(void* h, const char** shots,
                                                    const char* outputPath, char videoFlag,
                                                    float red, float green, float blue,
                                                    int exposureCount);

/*
 * ZEMU_ExecutePanoRepairHandle: stitches a bracketed shot set again, as
 * ZEMU_ExecuteOptFlowStitchHDRHandle does without videoFlag, and repairs host-marked rectangles
 * of the panorama from the single shot that best covers each.
 *
 * Arguments
 *   h           a stitch handle initialised for the Up camera.
 *   shots       eighteen paths as for the HDR stitch (three exposures per position).
 *   outputPath  the repaired panorama.
 *   lefts, tops, widths, heights  count rectangles, in the coordinates of the framed panorama
 *               the host holds (top band included), in the order they are to be repaired.
 *   count       the number of rectangles; 0 repairs nothing.
 *   red, green, blue  white-balance gains, as for the HDR stitch.
 *
 * Each rectangle in turn: the library finds the structure (edges) inside it, takes the head
 * position whose shot lies at the rectangle's centre longitude, and pastes that shot's pixels
 * over the structure's bounding box with a 50-pixel feathered border; later rectangles see the
 * earlier repairs. A structure is repaired only when its box, widened by 50 pixels on each side,
 * lies within 40 degrees of that shot's centre; rectangles centred within 30 degrees of the
 * panorama's left and right edge are never repaired. A refused rectangle prints
 * "<i>th ROI over cur sphere." (i counted from 0) on standard output and is skipped; one that
 * does not lie inside the panorama prints "<i>th ROI outside the panorama." on standard error
 * and is skipped.
 *
 * Reads     the shots; the Up configuration and table file.
 * Runs      "isp.bat isp_minion.pp3 <outputPath> <outputPath>.jpg" with the profile that is in
 *           "./asset/isp_minion.pp3" already (no choice by saturation).
 * Writes    outputPath + ".jpg" (the framed, repaired panorama handed to the script, then
 *           deleted) and outputPath (the script's result, written again by extension).
 * Prints    "Optical Flow Stitch start.", the rectangles' lines, the ISP section line, and at
 *           the end "Optical flow stitch finished." and the separator.
 * Status    0 when done. -1 with one line on standard error: "Read imgPath: <path> error." for
 *           an unreadable or wrongly sized shot (nothing written), "Camera not initialised: ..."
 *           without an Up Init, "Read ISP result: <outputPath> error." when the script left no
 *           image. -2 when memory runs out.
 * Threads   the HDR stitch's workers; the repairs and the colour step run on the caller's thread.
 */
VELMORA_API void ZEMU_ExecutePanoRepairHandle(void* h, const char** shots, const char* outputPath,
                                              const int* lefts, const int* tops, const int* widths,
                                              const int* heights, int count, float red, float green,
                                              float blue);

/*
 * ZEMU_ExecuteISPHandle: the colour step of a panorama that an HDR stitch on this handle left
 * pending under the output path `name`.
 *
 * Arguments
 *   h     the stitch handle that ran the HDR stitch.
 *   name  that stitch's outputPath, compared whole and case-sensitively.
 *
 * Works in the current working directory, which must hold the script "isp.bat" and the folder
 * "asset" with the profiles "satuHigh.pp3" and "satuLow.pp3". A Linux set over rawtherapee-cli
 * ships in share/isp/ of the sources and is installed in <prefix>/share/velmora/isp/ (see the
 * README). The step:
 *   1. measures the saturation of the intermediate image, (sum of max(B,G,R) - sum of
 *      min(B,G,R)) / sum of max(B,G,R) on a 2048 x 1024 copy, and copies ./asset/satuHigh.pp3
 *      (measure above 0.5) or ./asset/satuLow.pp3 to ./asset/isp_minion.pp3;
 *   2. runs "isp.bat isp_minion.pp3 <name> <intermediate>", which must leave the processed
 *      image at `name`, and deletes the intermediate image;
 *   3. rewrites the script's result at `name` with black bands of trunc(0.12 x grid height)
 *      rows above and below, as a JPEG of quality 85.
 * The entry stays recorded: asking again runs the step on an intermediate image that is gone.
 *
 * Reads     the intermediate image, ./asset/satuHigh.pp3 or ./asset/satuLow.pp3, the script's
 *           result at `name`.
 * Writes    ./asset/isp_minion.pp3 and `name`; deletes the intermediate image.
 * Prints    "ISP process start.", "satu = <measure>", the ISP section line, "ISP spend time :
 *           <s>", "ISP process finished." and the separator. A missing profile prints "Error 1:
 *           Fail to open the source file." and an unwritable ./asset/isp_minion.pp3 "Error 2:
 *           Fail to create the new file." (standard output); the script then runs with the
 *           profile already in place.
 * Status    0 when done, and also when `name` is not pending: that prints "<name> not found."
 *           and runs nothing. -1 with one line on standard error when the intermediate image
 *           cannot be read or the script left no image of the panorama's width at `name`.
 * Threads   the caller's thread only; it waits for the script.
 */
VELMORA_API void ZEMU_ExecuteISPHandle(void* h, const char* name);

/*
 * ZEMU_GetOptFlowStitchCode: the handle's status code as unsigned 32 bits (0, 4294967295 for -1,
 * 4294967294 for -2); 4294967295 for a null handle.
 */
VELMORA_API unsigned int ZEMU_GetOptFlowStitchCode(void* h);

/*
 * ZEMU_DestroyOptFlowStitchHandle: releases the handle and everything it holds, pending colour
 * steps included (their intermediate images stay on disk). Null is accepted and ignored. Do not
 * call it while another thread uses the handle.
 */
VELMORA_API void ZEMU_DestroyOptFlowStitchHandle(void* h);

/* ---- Video handle ------------------------------------------------------------------------- */

/*
 * ZEMU_CreateVideoStitchHandle: a new video handle with status code 0. Returns null only when
 * memory is exhausted. Release it with ZEMU_DestroyVideoStitchHandle.
 */
VELMORA_API void* ZEMU_CreateVideoStitchHandle(void);

/*
 * ZEMU_InitVideoStitchHandle: records the Up camera's configuration path and table folder and
 * four sizes: a4 and a5 are the camera's shot size (width, height), a6 and a7 the panorama grid
 * (width, height). Reads no file and prints nothing. Status: untouched, except -1 for a null path
 * ("Missing ...: null pointer.") and -2 when memory runs out.
 */
VELMORA_API void ZEMU_InitVideoStitchHandle(void* h, const char* modelConfigPath,
                                            const char* tableDir, int a4, int a5, int a6, int a7);

/*
 * ZEMU_ExecuteVideoStitchHandle: grabs a frame of the rig video, places it on the panorama at
 * panoramaPath through the Up camera's model, reports two values and runs the external video
 * stitcher.
 *
 * Arguments
 *   h             an initialised video handle.
 *   panoramaPath  a panorama whose size becomes the handle's panorama size; null or empty: none
 *                 (size 0 x 0, nothing projected).
 *   videoPath     the rig video.
 *   outputPath    only its folder (before the last "/") and its stem (after the last "/", before
 *                 the last ".") are used, to name the external stitcher's output.
 *   reserved1, reserved2  not used.
 *   outA, outB    receive 1.0 and 3.0.
 *
 * Runs      "ffmpeg  -i <videoPath> -ss 1 -f image2  -vframes 1 <videoPath>.jpg -y" (the frame
 *           one second in), then "zemu-ffmpeg-velmora -s <videoPath> -r
 *           w=3630:h=2670:x=184:y=176  -n <stem> -o <folder>". Runs of the external stitcher
 *           never overlap within the process.
 * Reads     videoPath + ".jpg" (written by ffmpeg next to the video, deleted after reading);
 *           panoramaPath; the Up configuration and table file.
 * Writes    the table file when there is none; a table file that is there is used as it is,
 *           whatever grid it was made for, and never replaced. The composed panorama is not
 *           written; the external stitcher writes its own output.
 * Prints    "execute video stitch start.", "===================zemu-ffmpeg===================",
 *           "execute video stitch done" and the separator.
 * Status    untouched on success. -1, without a message, when no frame could be grabbed; -1
 *           with one line when the frame is smaller than 3814 x 2846, the stored shot size does
 *           not fit the frame canvas, or videoPath, outputPath, outA or outB is null. -2 when
 *           memory runs out.
 * Threads   the caller's thread, and the projection's workers.
 */
VELMORA_API void ZEMU_ExecuteVideoStitchHandle(void* h, const char* panoramaPath,
                                               const char* videoPath, const char* outputPath,
                                               void* reserved1, void* reserved2, float* outA,
                                               float* outB);

/*
 * ZEMU_GetVideoStitchCode: the handle's status code as unsigned 32 bits; 0 until an operation
 * fails, since success leaves it untouched. 4294967295 for a null handle.
 */
VELMORA_API unsigned int ZEMU_GetVideoStitchCode(void* h);

/* ZEMU_DestroyVideoStitchHandle: releases the handle. Null is accepted and ignored. */
VELMORA_API void ZEMU_DestroyVideoStitchHandle(void* h);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_H */
