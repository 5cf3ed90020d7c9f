"""Stitching through the package: the same files as through the C interface."""
import filecmp
import subprocess

import pytest

import velmora
from conftest import GRID, SHOT_SIZE, size_text


@pytest.mark.parametrize("camera", ["Up", "Down"])
def test_stitch_writes_the_same_file_as_the_c_interface(tool, capture, camera, capfd):
    config = capture / "shots" / f"{camera}.txt"
    shots = [capture / "shots" / f"{camera}_{position}.jpg" for position in range(6)]
    python_output = capture / f"{camera}_python.jpg"
    c_output = capture / f"{camera}_c.jpg"

    with velmora.Stitcher() as stitcher:
        stitcher.init_camera(config, capture / "tables", SHOT_SIZE, GRID)
        stitcher.stitch(str(config), shots, python_output, gains=(1.1, 1, 0.9))
    subprocess.run([tool, "stitch", "-c", str(config), "-t", str(capture / "tables"),
                    "--shot-size", size_text(SHOT_SIZE), "--grid", size_text(GRID), "--gains",
                    "1.1,1,0.9", "-o", str(c_output), *map(str, shots)],
                   check=True, capture_output=True)

    assert filecmp.cmp(python_output, c_output, shallow=False)
    if camera == "Up":
        assert f"==================version-{velmora.__version__}==================" in \
            capfd.readouterr().out.splitlines()
