"""Handles: released on every path, and the library found as documented."""
import gc
import os
import subprocess
import sys

import velmora
from conftest import GRID, SHOT_SIZE

PAGE = os.sysconf("SC_PAGE_SIZE")


def resident_bytes() -> int:
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * PAGE


def test_handles_are_released_over_a_hundred_cycles(tmp_path, up_config, capfd):
    tables = tmp_path / "tables"
    with velmora.Stitcher() as stitcher:
        stitcher.init_camera(up_config, tables, SHOT_SIZE, GRID)  # caches the table
    # With the table cached the configuration is not read; each handle keeps its path, 2 MB
    # here, so a handle left behind shows in the process's size.
    long_config = f"{tmp_path}/{'d' * (1 << 20)}/Up.txt"

    def cycle(index):
        if index % 2:  # dropped without close(): released when collected
            velmora.Stitcher().init_camera(long_config, tables, SHOT_SIZE, GRID)
            velmora.VideoStitcher().init_camera(long_config, tables, SHOT_SIZE, GRID)
            return
        with velmora.Stitcher() as stitcher, velmora.VideoStitcher() as video:
            stitcher.init_camera(long_config, tables, SHOT_SIZE, GRID)
            video.init_camera(long_config, tables, SHOT_SIZE, GRID)

    for index in range(10):
        cycle(index)
    gc.collect()
    before = resident_bytes()
    for index in range(100):
        cycle(index)
    gc.collect()
    growth = resident_bytes() - before
    capfd.readouterr()
    assert growth < 32 << 20, f"the process grew by {growth} bytes over 100 cycles"


def test_library_variable_names_the_file_to_load(tmp_path):
    environment = {**os.environ, "VELMORA_LIBRARY": str(tmp_path / "libnone.so")}
    run = subprocess.run(
        [sys.executable, "-c",
         "import velmora; print(velmora.__version__); velmora.Stitcher()"],
        env=environment, capture_output=True, text=True)
    # Importing needs no library; the first handle loads it.
    assert run.stdout == f"{velmora.__version__}\n"
    assert run.returncode != 0
    assert "cannot load the Velmora library (set VELMORA_LIBRARY to its file): " \
        f"{tmp_path / 'libnone.so'}" in run.stderr
