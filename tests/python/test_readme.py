"""The README's Python examples run, at the simulated capture's sizes instead of the rig's."""
import re
import shutil
import subprocess
import sys
from pathlib import Path

from conftest import GRID, SHOT_SIZE

README = Path(__file__).resolve().parents[2] / "README.md"


def readme_examples():
    blocks = re.findall(r"^```python\n(.*?)^```$", README.read_text(), re.S | re.M)
    return [block.replace("(5472, 3648)", repr(SHOT_SIZE)).replace("(8192, 4096)", repr(GRID))
            for block in blocks]


def run_example(source, folder):
    return subprocess.run([sys.executable, "-c", source], cwd=folder, capture_output=True,
                          text=True, check=True).stdout


def test_readme_examples_run(capture, tmp_path):
    single, folder_loop = readme_examples()
    shutil.copytree(capture / "shots", tmp_path / "capture")
    (tmp_path / "tables").mkdir()
    assert "stitched with Velmora" in run_example(single, tmp_path)
    for camera in ("Up", "Down"):
        assert (tmp_path / f"{camera}_panorama.jpg").stat().st_size > 0

    (tmp_path / "rig").mkdir()
    shutil.copy(capture / "shots" / "Up.txt", tmp_path / "rig")
    for name in ("a", "b", "c"):
        shutil.copytree(capture / "shots", tmp_path / "captures" / name)
    (tmp_path / "captures" / "b" / "Up_0.jpg").unlink()
    reports = [line for line in run_example(folder_loop, tmp_path).splitlines()
               if re.match(r"[abc]: ", line)]
    assert reports == ["b: Read imgPath: captures/b/Up_0.jpg error."]
    assert [path.parent.name for path in sorted(tmp_path.glob("captures/*/Up_panorama.jpg"))] \
        == ["a", "c"]
