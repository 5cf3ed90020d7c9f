"""Fixtures of the Python package's tests: the built tool and a small simulated capture.

CTest runs these tests with PYTHONPATH naming the build tree's package, VELMORA_LIBRARY its
library and VELMORA_TOOL the built velmora tool (absent when the tool is not built).
"""
import os
import subprocess
from pathlib import Path

import pytest

SHOT_SIZE = (480, 320)
GRID = (512, 256)


def size_text(size):
    return f"{size[0]}x{size[1]}"


@pytest.fixture(scope="session")
def tool() -> str:
    path = os.environ.get("VELMORA_TOOL")
    if not path:
        pytest.skip("the velmora tool is not built (VELMORA_TOOL is not set)")
    return path


@pytest.fixture(scope="session")
def capture(tool, tmp_path_factory) -> Path:
    """A folder with a simulated capture in shots/ (both cameras) and an empty tables/."""
    folder = tmp_path_factory.mktemp("capture")
    subprocess.run([tool, "simulate", "-o", str(folder / "shots"), "--shot-size",
                    size_text(SHOT_SIZE), "--grid", size_text(GRID), "--no-truth"],
                   check=True, capture_output=True)
    (folder / "tables").mkdir()
    return folder


@pytest.fixture
def up_config(tmp_path) -> Path:
    """A valid Up camera configuration in a folder of its own, with a tables/ folder beside."""
    path = tmp_path / "Up.txt"
    path.write_text("focal 154 centerX 160 centerY 240 rotX -0.4 e 0 rotZ 0 e 0 e 0 e 0\n")
    (tmp_path / "tables").mkdir()
    return path
