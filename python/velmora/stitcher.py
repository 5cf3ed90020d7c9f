"""Stitcher: the library's stitch handle (single-exposure, HDR and repair stitches, colour step)."""
from __future__ import annotations

import ctypes
from typing import Sequence, Tuple

from . import arguments
from .arguments import PathArg
from .handle import LibraryHandle

#: Shots of one camera in a single-exposure stitch: one per head position, 60 degrees apart.
SHOTS_PER_CAMERA = 6
#: Shots of a bracketed set: three exposure slots per head position.
BRACKETED_SHOTS = 18

_NEUTRAL_GAINS = (1.0, 1.0, 1.0)


class Stitcher(LibraryHandle):
    """A stitch handle: initialise each camera with init_camera(), then stitch.

    Use it as a context manager (or call close()) so the handle is destroyed::

        with velmora.Stitcher() as stitcher:
            stitcher.init_camera("rig/Up.txt", "rig/tables", (5472, 3648), (8192, 4096))
            stitcher.stitch("rig/Up.txt", shots, "up.jpg")

    Every method checks its arguments first (TypeError, ValueError), then calls the library and
    raises VelmoraError when the handle's status code is not 0 afterwards. The library prints
    progress on standard output and the reason of a failure as one line on standard error.

    capture_errors: when True, every call runs with the process's standard error (file
    descriptor 2) redirected to a temporary file, so that a VelmoraError carries the library's
    error line in its ``line``. The redirection is process-wide: output of every thread during
    the call is captured (and written on to standard error afterwards), and capturing calls of
    all objects run one at a time. Off by default.

    Status codes: the stitch operations store 0 when they complete; init_camera stores a code
    only when it fails. So the code of any failed call stays in the handle until a stitch
    completes, and an init_camera meanwhile raises with ``held_before`` set even when it worked:
    after a failed init_camera, start again on a new Stitcher.

    Paths are passed unchanged, encoded with the file system encoding; relative paths are taken
    from the current working directory. Give folders without a trailing "/".
    """

    _create = "ZEMU_CreateOptFlowStitchHandle"
    _destroy = "ZEMU_DestroyOptFlowStitchHandle"
    _get_code = "ZEMU_GetOptFlowStitchCode"

    def init_camera(self, config_path: PathArg, table_dir: PathArg, shot_size: Sequence[int],
                    grid: Sequence[int]) -> None:
        """Prepares one camera of the rig on this handle; the last call for a camera wins.

        Args:
            config_path: the camera's configuration file. Its file name names the camera: one
                beginning with "Up." is the upper camera, one beginning with "D" the lower one;
                the path must contain a "/".
            table_dir: folder of the projection table cache.
            shot_size: (width, height) of the camera's shots in pixels, as stored in the files.
            grid: (width, height) of the camera's panorama in cells, both above 0.

        Reads: config_path; table_dir/table_Up.bin or table_dir/table_Down.bin when it holds a
            whole grid (with a usable table the configuration is not needed).
        Writes: that table file, when it is missing or short.
        Prints: for the Up camera the version banner, then "Init UpCam done." (or "Init DownCam
            done.") and the separator.

        Raises:
            VelmoraError: -1 when the path names no camera ("Configure path:<path> error."), the
                grid is not above 0, neither configuration nor table can be read, or the table
                cannot be written; -2 when memory runs out.
        """
        setup = arguments.camera_setup(config_path, table_dir, shot_size, grid)
        init = self._library.ZEMU_InitOptFlowStitchHandle
        self._run("init_camera", lambda handle: init(handle, *setup), stores_zero=False)

    def stitch(self, config_path: PathArg, shots: Sequence[PathArg], output_path: PathArg,
               gains: Sequence[float] = _NEUTRAL_GAINS) -> None:
        """Stitches the six single-exposure shots of one initialised camera into a framed
        panorama.

        Args:
            config_path: the camera's configuration file; it names the camera as in init_camera.
            shots: six shot paths in shooting order, each of the size given to init_camera.
            output_path: the panorama; its extension chooses the format (".jpg", ".png", ...).
            gains: red, green and blue white-balance gains for every shot (1, 1, 1: unchanged).

        Reads: config_path, the six shots, the camera's table file.
        Writes: output_path, the grid of init_camera with the sphere between two black bands
            (whole or not at all: written beside it and renamed into place); the table file
            when it is missing or short.

        Raises:
            VelmoraError: -1, nothing written, when the path names no camera, the camera was
                not initialised on this handle, a shot is unreadable or of another size
                ("Read imgPath: <path> error."), or the panorama cannot be written; -2 when
                memory runs out.
        """
        config = arguments.path_bytes(config_path, "config_path")
        shot_array = arguments.path_array(shots, SHOTS_PER_CAMERA, "shots")
        output = arguments.path_bytes(output_path, "output_path")
        red, green, blue = arguments.gains(gains)
        execute = self._library.ZEMU_ExecuteOptFlowStitchHandle
        self._run("stitch",
                  lambda handle: execute(handle, config, shot_array, output, red, green, blue),
                  stores_zero=True)

    def stitch_hdr(self, shots: Sequence[PathArg], output_path: PathArg, video: bool = False,
                   gains: Sequence[float] = _NEUTRAL_GAINS, exposure_count: int = 3) -> None:
        """Fuses the Up camera's bracketed shots position by position and stitches them.

        Args:
            shots: eighteen paths, exposure e of head position p at shots[p * 3 + e]: the
                brightest in slot 0, the middle one in slot 1, the darkest (the fusion's base)
                in slot 2; each of the Up camera's size.
            output_path: the final panorama.
            video: False: stitch only and leave the colour step pending (see colour_step).
                True: also stitch the Down camera from the middle exposures, match its tones to
                the frame one second into the rig video, run the colour step at once and blend
                the Down view into the middle of the panorama (both cameras initialised with the
                same grid; shots[16] at least 4736 x 3324).
            gains: red, green and blue white-balance gains for every fused shot; normalised
                when one exceeds 1.2.
            exposure_count: exposures per position; 3 (2 fails with -1).

        Without video:
            Reads: the shots, the Up configuration and table file.
            Writes: output_path + ".jpg", the unframed panorama awaiting colour_step(output_path).
        With video:
            Reads: also the Down configuration and table file and the video
                <folder of shots[16]>/<first 14 characters of its name>.mp4.
            Runs: ffmpeg (the frame), then "isp.bat isp_minion.pp3 <output> <output>.jpg" in the
                current working directory, which needs "isp.bat" and "asset/".
            Writes: output_path (a JPEG of quality 85 whatever the extension); output_path +
                ".jpg" only while the colour step runs.

        Raises:
            VelmoraError: -1, the output not written, for an unreadable or wrongly sized shot,
                a camera not initialised, no video frame, no colour-step result, or an exposure
                count other than 3; -2 when memory runs out.
        """
        shot_array = arguments.path_array(shots, BRACKETED_SHOTS, "shots")
        output = arguments.path_bytes(output_path, "output_path")
        if not isinstance(video, bool):
            raise TypeError(f"video must be bool, not {type(video).__name__}")
        red, green, blue = arguments.gains(gains)
        count = arguments.c_int(exposure_count, "exposure_count")
        execute = self._library.ZEMU_ExecuteOptFlowStitchHDRHandle
        self._run("stitch_hdr",
                  lambda handle: execute(handle, shot_array, output, int(video), red, green,
                                         blue, count), stores_zero=True)

    def colour_step(self, name: PathArg) -> None:
        """Runs the colour step of the panorama an HDR stitch on this handle left pending.

        Args:
            name: that stitch's output_path, compared whole and case-sensitively. A name that is
                not pending prints "<name> not found." and does nothing (no error).

        Works in the current working directory, which must hold "isp.bat" and "asset/" with
        "satuHigh.pp3" and "satuLow.pp3" (installed in <prefix>/share/velmora/isp/).

        Reads: the intermediate image (name + ".jpg"), the chosen profile, the script's result.
        Runs: "isp.bat isp_minion.pp3 <name> <intermediate>".
        Writes: ./asset/isp_minion.pp3 and name (framed, JPEG of quality 85); deletes the
            intermediate image.

        Raises:
            VelmoraError: -1 when the intermediate image cannot be read or the script left no
                image of the panorama's width at name; -2 when memory runs out.
        """
        encoded = arguments.path_bytes(name, "name")
        execute = self._library.ZEMU_ExecuteISPHandle
        self._run("colour_step", lambda handle: execute(handle, encoded), stores_zero=True)

    def repair(self, shots: Sequence[PathArg], output_path: PathArg,
               rectangles: Sequence[Tuple[int, int, int, int]],
               gains: Sequence[float] = _NEUTRAL_GAINS) -> None:
        """Stitches a bracketed set again (as stitch_hdr without video) and repairs rectangles of
        the panorama from the single shot that best covers each, then runs the colour step.

        Args:
            shots: eighteen paths, as for stitch_hdr.
            output_path: the repaired panorama.
            rectangles: (left, top, width, height) in the framed panorama's coordinates (top
                band included), repaired in this order; may be empty. A rectangle no single shot
                covers well, or centred within 30 degrees of the panorama's edges, is skipped
                ("<i>th ROI over cur sphere."), as is one outside the panorama.
            gains: white-balance gains, as for stitch_hdr.

        Reads: the shots, the Up configuration and table file.
        Runs: "isp.bat isp_minion.pp3 <output> <output>.jpg" in the current working directory
            with the profile already in ./asset/isp_minion.pp3.
        Writes: output_path + ".jpg" while the script runs, then output_path.

        Raises:
            VelmoraError: -1 for an unreadable or wrongly sized shot (nothing written), no Up
                camera initialised, or no colour-step result; -2 when memory runs out.
        """
        shot_array = arguments.path_array(shots, BRACKETED_SHOTS, "shots")
        output = arguments.path_bytes(output_path, "output_path")
        boxes = arguments.rectangles(rectangles)
        red, green, blue = arguments.gains(gains)
        columns = [(ctypes.c_int * len(boxes))(*(box[field] for box in boxes))
                   for field in range(4)]
        execute = self._library.ZEMU_ExecutePanoRepairHandle
        self._run("repair",
                  lambda handle: execute(handle, shot_array, output, *columns, len(boxes), red,
                                         green, blue), stores_zero=True)
