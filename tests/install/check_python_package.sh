#!/usr/bin/env bash
# Checks the Python package of an installed Velmora tree: its files, and that Debian's python3,
# given only the package's folder, imports it, loads the tree's own library from beside it,
# and creates, uses and destroys both handle kinds.
#
#   check_python_package.sh <prefix> <python dir> <libdir> <version>
#
# <python dir> and <libdir> are relative to <prefix> (lib/python3/dist-packages,
# lib/x86_64-linux-gnu). Exits non-zero at the first failed check, naming it.
set -euo pipefail

prefix=$(cd "$1" && pwd)
pythondir=$prefix/$2
library=$prefix/$3/libvelmora.so.${4%%.*}
version=$4
python=${VELMORA_PYTHON:-/usr/bin/python3}

echo "== the Python package"
for file in __init__.py _build_info.py stitcher.py video_stitcher.py py.typed; do
  if [ ! -f "$pythondir/velmora/$file" ]; then
    echo "FAILED  Python package file $2/velmora/$file"
    exit 1
  fi
done
echo "ok      Python package files in $2/velmora"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# From an empty folder, with neither VELMORA_LIBRARY nor LD_LIBRARY_PATH, without writing
# byte code into the tree.
if ! (cd "$scratch" && env -u VELMORA_LIBRARY -u LD_LIBRARY_PATH PYTHONPATH="$pythondir" \
  PYTHONDONTWRITEBYTECODE=1 "$python" - "$pythondir" "$library" "$version" >"$scratch/log" \
  2>&1) <<'PYTHON'; then
import os
import sys

import velmora

pythondir, library, version = sys.argv[1:]
checks = []
checks.append(("imported from the tree",
               os.path.dirname(os.path.dirname(os.path.realpath(velmora.__file__)))
               == os.path.realpath(pythondir)))
checks.append(("__version__ is " + version, velmora.__version__ == version))
with velmora.Stitcher(capture_errors=True) as stitcher:
    try:
        stitcher.init_camera("/nowhere/camera.txt", "/nowhere", (8, 8), (8, 4))
        failure = None
    except velmora.VelmoraError as error:
        failure = error
checks.append(("a failed init raises VelmoraError -1 with its line",
               failure is not None and failure.code == -1
               and failure.line == "Configure path:/nowhere/camera.txt error."))
with velmora.VideoStitcher() as video:
    video.init_camera("/nowhere/Up.txt", "/nowhere", (8, 8), (8, 4))
checks.append(("both handles destroyed", stitcher.closed and video.closed))
with open("/proc/self/maps") as maps:
    loaded = {line.split()[-1] for line in maps if "libvelmora" in line}
checks.append(("the library loaded is the tree's " + library,
               {os.path.realpath(path) for path in loaded} == {os.path.realpath(library)}))
for what, passed in checks:
    print(("ok      " if passed else "FAILED  ") + what)
sys.exit(0 if all(passed for _, passed in checks) else 1)
PYTHON
  echo "FAILED  python3 imports velmora from the tree and drives both handles"
  sed 's/^/        /' "$scratch/log"
  exit 1
fi
echo "ok      python3 imports velmora from the tree and drives both handles"
