"""Argument checks: every wrong argument is refused before the library is called."""
import pytest

import velmora
from conftest import GRID, SHOT_SIZE

SIX = [f"s/{position}.jpg" for position in range(6)]
EIGHTEEN = [f"b/{slot}.jpg" for slot in range(18)]

# (handle class, method, arguments of a valid call)
VALID = {
    "init_camera": (velmora.Stitcher, dict(config_path="c/Up.txt", table_dir="t",
                                           shot_size=SHOT_SIZE, grid=GRID)),
    "stitch": (velmora.Stitcher, dict(config_path="c/Up.txt", shots=SIX, output_path="o.jpg",
                                      gains=(1, 1, 1))),
    "stitch_hdr": (velmora.Stitcher, dict(shots=EIGHTEEN, output_path="o.jpg", video=False,
                                          gains=(1, 1, 1), exposure_count=3)),
    "colour_step": (velmora.Stitcher, dict(name="o.jpg")),
    "repair": (velmora.Stitcher, dict(shots=EIGHTEEN, output_path="o.jpg",
                                      rectangles=[(0, 0, 8, 8)], gains=(1, 1, 1))),
    "video_init": (velmora.VideoStitcher, dict(config_path="c/Up.txt", table_dir="t",
                                               shot_size=SHOT_SIZE, grid=GRID)),
    "stitch_video": (velmora.VideoStitcher, dict(video_path="v.mp4", output_path="o/s.mp4",
                                                 panorama_path="p.jpg")),
}

PATH_TYPE = "must be str or os.PathLike, not"
SIZE = "must be a sequence of 2 integers (width, height)"

# (call, argument, wrong value, exception, message)
CASES = [
    ("init_camera", "config_path", 42, TypeError, f"config_path {PATH_TYPE} int"),
    ("init_camera", "table_dir", b"t", TypeError, f"table_dir {PATH_TYPE} bytes"),
    ("init_camera", "config_path", "c/U\0p.txt", ValueError,
     "config_path contains a NUL character"),
    ("init_camera", "shot_size", 480, TypeError, f"shot_size {SIZE}, not int"),
    ("init_camera", "shot_size", (480,), ValueError, f"shot_size {SIZE}, got 1"),
    ("init_camera", "grid", (512.0, 256), TypeError, "grid[0] must be an integer, not float"),
    ("init_camera", "grid", (512, True), TypeError, "grid[1] must be an integer, not bool"),
    ("init_camera", "grid", (2 ** 31, 256), ValueError,
     "grid[0] is 2147483648, outside the C int range"),
    ("stitch", "shots", SIX[:5], ValueError, "shots must be a sequence of 6 paths, got 5"),
    ("stitch", "shots", "s/0.jpg", TypeError, "shots must be a sequence of 6 paths, not str"),
    ("stitch", "shots", SIX[:5] + [None], TypeError, f"shots[5] {PATH_TYPE} NoneType"),
    ("stitch", "output_path", None, TypeError, f"output_path {PATH_TYPE} NoneType"),
    ("stitch", "gains", (1, 1), ValueError,
     "gains must be a sequence of 3 numbers (red, green, blue), got 2"),
    ("stitch", "gains", (1, "1", 1), TypeError, "gains[1] must be a real number, not str"),
    ("stitch_hdr", "shots", EIGHTEEN + ["b/18.jpg"], ValueError,
     "shots must be a sequence of 18 paths, got 19"),
    ("stitch_hdr", "video", 1, TypeError, "video must be bool, not int"),
    ("stitch_hdr", "exposure_count", 3.0, TypeError,
     "exposure_count must be an integer, not float"),
    ("colour_step", "name", 7, TypeError, f"name {PATH_TYPE} int"),
    ("repair", "rectangles", None, TypeError,
     "rectangles must be a sequence of rectangles, not NoneType"),
    ("repair", "rectangles", [(0, 0, 8)], ValueError,
     "rectangles[0] must be a sequence of 4 integers (left, top, width, height), got 3"),
    ("repair", "rectangles", [(0, 0, 8, 8), (0, 0, 8, "8")], TypeError,
     "rectangles[1][3] must be an integer, not str"),
    ("video_init", "grid", (512, 256, 1), ValueError, f"grid {SIZE}, got 3"),
    ("stitch_video", "video_path", None, TypeError, f"video_path {PATH_TYPE} NoneType"),
    ("stitch_video", "panorama_path", 3, TypeError, f"panorama_path {PATH_TYPE} int"),
]


@pytest.mark.parametrize("call, argument, value, exception, message", CASES,
                         ids=[f"{case[0]}-{case[1]}-{index}" for index, case in enumerate(CASES)])
def test_wrong_argument_is_refused_before_the_call(call, argument, value, exception, message,
                                                   capfd):
    handle_class, valid = VALID[call]
    method = "init_camera" if call == "video_init" else call
    with handle_class() as handle:
        with pytest.raises(exception) as raised:
            getattr(handle, method)(**{**valid, argument: value})
    assert str(raised.value) == message
    # The library never ran: it prints at least one line for every operation.
    assert capfd.readouterr() == ("", "")


@pytest.mark.parametrize("handle_class", [velmora.Stitcher, velmora.VideoStitcher])
def test_closed_handle_refuses_calls(handle_class):
    handle = handle_class()
    handle.close()
    handle.close()
    assert handle.closed
    with pytest.raises(ValueError, match=f"operation on a closed {handle_class.__name__}"):
        handle.init_camera("c/Up.txt", "t", SHOT_SIZE, GRID)
