"""Panoramas from a rotating two-camera rig, through libvelmora's C interface.

    import velmora

    with velmora.Stitcher() as stitcher:
        stitcher.init_camera("rig/Up.txt", "rig/tables", (5472, 3648), (8192, 4096))
        stitcher.stitch("rig/Up.txt", [f"shots/Up_{i}.jpg" for i in range(6)], "up.jpg")

Stitcher wraps the stitch handle, VideoStitcher the video handle; a failed call raises
VelmoraError with the library's status code. The library is the file named by the environment
variable VELMORA_LIBRARY when it is set, else the one installed beside this package, else
libvelmora.so.<major> as the dynamic loader finds it; it is loaded when the first handle is
created.
"""
from ._build_info import VERSION as __version__
from .errors import FAILURE, OK, OUT_OF_MEMORY, VelmoraError
from .stitcher import BRACKETED_SHOTS, SHOTS_PER_CAMERA, Stitcher
from .video_stitcher import VideoStitcher

__all__ = [
    "BRACKETED_SHOTS",
    "FAILURE",
    "OK",
    "OUT_OF_MEMORY",
    "SHOTS_PER_CAMERA",
    "Stitcher",
    "VelmoraError",
    "VideoStitcher",
    "__version__",
]
