"""VideoStitcher: the library's video handle."""
from __future__ import annotations

import ctypes
from typing import Optional, Sequence, Tuple

from . import arguments
from .arguments import PathArg
from .handle import LibraryHandle


class VideoStitcher(LibraryHandle):
    """A video handle: init_camera() with the Up camera, then stitch_video().

    Use it as a context manager (or call close()) so the handle is destroyed. Arguments are
    checked first (TypeError, ValueError); a call that leaves a non-zero status code raises
    VelmoraError. capture_errors works as for Stitcher (process-wide redirection of standard
    error during each call, off by default).

    The video handle stores a code only when a call fails and keeps it for its whole life: after
    a failure every later call raises again with ``held_before`` set. Use a new VideoStitcher.
    """

    _create = "ZEMU_CreateVideoStitchHandle"
    _destroy = "ZEMU_DestroyVideoStitchHandle"
    _get_code = "ZEMU_GetVideoStitchCode"

    def init_camera(self, config_path: PathArg, table_dir: PathArg, shot_size: Sequence[int],
                    grid: Sequence[int]) -> None:
        """Records the Up camera's configuration path, table folder, shot size (width, height)
        and panorama grid (width, height). Reads no file and prints nothing.

        Raises:
            VelmoraError: -2 when memory runs out.
        """
        setup = arguments.camera_setup(config_path, table_dir, shot_size, grid)
        init = self._library.ZEMU_InitVideoStitchHandle
        self._run("init_camera", lambda handle: init(handle, *setup), stores_zero=False)

    def stitch_video(self, video_path: PathArg, output_path: PathArg,
                     panorama_path: Optional[PathArg] = None) -> Tuple[float, float]:
        """Grabs the frame one second into the rig video, places it on the panorama through the
        Up camera's model and runs the external video stitcher.

        Args:
            video_path: the rig video.
            output_path: only its folder (before the last "/") and stem (after it, before the
                last ".") are used, to name the external stitcher's output.
            panorama_path: a panorama whose size becomes the handle's panorama size; None: none.

        Runs: "ffmpeg  -i <video> -ss 1 -f image2  -vframes 1 <video>.jpg -y", then
            "zemu-ffmpeg-velmora -s <video> -r w=3630:h=2670:x=184:y=176  -n <stem> -o <folder>"
            in the current working directory (runs of the latter never overlap in a process).
        Reads: video_path + ".jpg" (deleted after reading), panorama_path, the Up configuration
            and table file.
        Writes: the table file when there is none (one that is there is used as it is and
            never replaced); the external stitcher writes its own output.

        Returns:
            The two values the library reports (outA, outB).

        Raises:
            VelmoraError: -1 when no frame could be grabbed (without a line), the frame is
                smaller than 3814 x 2846 or the shot size does not fit it; -2 when memory runs
                out.
        """
        video = arguments.path_bytes(video_path, "video_path")
        output = arguments.path_bytes(output_path, "output_path")
        panorama = (None if panorama_path is None
                    else arguments.path_bytes(panorama_path, "panorama_path"))
        first, second = ctypes.c_float(0.0), ctypes.c_float(0.0)
        execute = self._library.ZEMU_ExecuteVideoStitchHandle
        self._run("stitch_video",
                  lambda handle: execute(handle, panorama, video, output, None, None,
                                         ctypes.byref(first), ctypes.byref(second)),
                  stores_zero=False)
        return first.value, second.value
