#!/usr/bin/env bash
# Checks an installed Velmora tree as a host developer meets it, then builds the C host
# (tests/host/fault_host.c) against it twice, through the CMake package and through pkg-config,
# and runs both.
#
#   check_installed_tree.sh <prefix> <libdir> <version> <tool: yes|no> [C compiler] [C flags]
#
# <prefix> is the installed prefix (for an unpacked Debian package: <root>/usr), <libdir> the
# library folder relative to it (lib, lib/x86_64-linux-gnu). With "yes" the velmora tool must be
# installed and run from the tree. The C flags go to both host builds (the sanitizer flags when
# the library was built with them). Exits non-zero at the first failed check, naming it.
set -euo pipefail

prefix=$(cd "$1" && pwd)
libdir=$2
version=$3
expect_tool=$4
cc=${5:-cc}
cflags=${6:-}
here=$(cd "$(dirname "$0")" && pwd)
major=${version%%.*}
lib=$prefix/$libdir

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
log=$scratch/check.log
failures=0
check() { # check <description> <command...>: runs the command, shows its output on failure
  local what=$1
  shift
  if "$@" >"$log" 2>&1; then
    echo "ok      $what"
  else
    echo "FAILED  $what"
    sed 's/^/        /' "$log"
    failures=$((failures + 1))
  fi
}
finish() {
  if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed in $prefix"
    exit 1
  fi
}
equals() { # equals <got> <expected>
  [ "$1" = "$2" ] || { echo "got \"$1\", expected \"$2\""; return 1; }
}
soname_of() { readelf -d "$1" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p'; }
needed_of() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; }
# A binary that loads libvelmora from this tree and from nowhere else.
loads_velmora_from_tree() {
  local loaded
  loaded=$(ldd "$1" | sed -n "s/^[[:space:]]*libvelmora\.so\.$major => \(.*\) (0x.*/\1/p")
  equals "$(readlink -f "$loaded")" "$(readlink -f "$lib/libvelmora.so.$major")"
}
# A host that needs the library alone: OpenCV is the library's private business.
links_velmora_alone() {
  loads_velmora_from_tree "$1" && equals "$(needed_of "$1" | grep opencv)" ""
}

echo "== installed files"
check "library $libdir/libvelmora.so.$version" test -f "$lib/libvelmora.so.$version"
check "SONAME libvelmora.so.$major" equals "$(soname_of "$lib/libvelmora.so.$version")" \
  "libvelmora.so.$major"
check "libvelmora.so.$major -> libvelmora.so.$version" \
  equals "$(readlink "$lib/libvelmora.so.$major")" "libvelmora.so.$version"
check "libvelmora.so -> libvelmora.so.$major" \
  equals "$(readlink "$lib/libvelmora.so")" "libvelmora.so.$major"
check "header include/velmora.h" cmp -s "$here/../../include/velmora.h" "$prefix/include/velmora.h"
for file in VelmoraConfig.cmake VelmoraConfigVersion.cmake VelmoraTargets.cmake; do
  check "CMake package $libdir/cmake/Velmora/$file" test -f "$lib/cmake/Velmora/$file"
done
check "Velmora::velmora brings no link dependencies" \
  bash -c "! grep -q INTERFACE_LINK_LIBRARIES '$lib/cmake/Velmora/VelmoraTargets.cmake'"
check "pkg-config file $libdir/pkgconfig/velmora.pc" test -f "$lib/pkgconfig/velmora.pc"
check "colour step share/velmora/isp/isp.bat, executable" test -x "$prefix/share/velmora/isp/isp.bat"
for profile in satuHigh.pp3 satuLow.pp3 isp_minion.pp3; do
  check "colour profile share/velmora/isp/asset/$profile" \
    test -f "$prefix/share/velmora/isp/asset/$profile"
done
check "cluster job script share/velmora/cluster/velmora-batch.sbatch, executable" \
  test -x "$prefix/share/velmora/cluster/velmora-batch.sbatch"
check "Kubernetes Job share/velmora/cluster/velmora-batch-job.yaml" \
  test -f "$prefix/share/velmora/cluster/velmora-batch-job.yaml"
check "share/doc/velmora/README.md" test -f "$prefix/share/doc/velmora/README.md"
if [ "$expect_tool" = yes ]; then
  check "tool bin/velmora runs (--help)" "$prefix/bin/velmora" --help
  check "tool bin/velmora loads the tree's library" loads_velmora_from_tree "$prefix/bin/velmora"
  for file in pannellum.js pannellum.css pannellum-COPYING report.css; do
    check "report viewer share/velmora/viewer/$file" test -f "$prefix/share/velmora/viewer/$file"
  done
else
  check "no tool bin/velmora (not built)" test ! -e "$prefix/bin/velmora"
fi
finish

# Runs the host (tests/host/fault_host.c, a host as a user writes it) in a fresh work folder:
# Init of the Up camera and a stitch of six shots into up.ppm, Init of the Down camera, and Init
# with a lower-case "up.txt", which names no camera. Checks the status codes, the panorama's
# size and the transcript: the version banner of this release, both cameras' Init lines, the
# stitch's lines and the rejected path.
run_host() { # run_host <binary> <name>
  local binary=$1 work=$scratch/work-$2 camera k shots=()
  mkdir -p "$work"
  for camera in Up Down up; do
    printf 'focal 31\ncenterX 32\ncenterY 48\nrotX 0.35\nextra1 0\nrotZ 0\n%s\n' \
      'extra2 0 extra3 0 extra4 0' >"$work/$camera.txt"
  done
  for k in 0 1 2 3 4 5; do # 96 x 64 shots of noise
    { printf 'P6\n96 64\n255\n' && head -c 18432 /dev/urandom; } >"$work/shot$k.ppm"
    shots+=("$work/shot$k.ppm")
  done
  if ! "$binary" "$work/Up.txt" "$work" 96 64 128 64 "$work/up.ppm" "${shots[@]}" \
    >"$work/out.txt" 2>"$work/err.txt" ||
    ! "$binary" "$work/Down.txt" "$work" 96 64 128 64 >>"$work/out.txt" 2>>"$work/err.txt" ||
    "$binary" "$work/up.txt" "$work" 96 64 128 64 >>"$work/out.txt" 2>>"$work/err.txt"; then
    cat "$work/out.txt" "$work/err.txt"
    return 1
  fi
  equals "$(grep -c '^codes 0 0$' "$work/out.txt")" 2 &&
    grep -qx "codes -1 0" "$work/out.txt" &&
    equals "$(head -n 2 "$work/up.ppm" | tr '\n' ' ')" "P6 128 64 " &&
    grep -qx "==================version-$version==================" "$work/out.txt" &&
    grep -qx "Init UpCam done." "$work/out.txt" &&
    grep -qx "Init DownCam done." "$work/out.txt" &&
    grep -qx "Stitch up cameras." "$work/out.txt" &&
    grep -qx "Optical flow stitch finished." "$work/out.txt" &&
    grep -qx "Configure path:$work/up.txt error." "$work/err.txt"
}

echo "== the README's host example"
# The first C block of the installed README, built against the installed tree (not run: it
# names a rig's files).
awk '/^```c$/ { inside = 1; next } inside && /^```$/ { exit } inside' \
  "$prefix/share/doc/velmora/README.md" >"$scratch/readme_host.c"
check "the README holds a C host example" test -s "$scratch/readme_host.c"
# shellcheck disable=SC2086
check "it compiles and links against the tree" \
  "$cc" -std=c99 -Wall -Wextra -Werror -pedantic $cflags -I"$prefix/include" \
  "$scratch/readme_host.c" -o "$scratch/readme_host" -L"$lib" -lvelmora

echo "== host through find_package(Velmora)"
cmake_host=$scratch/cmake-host
check "configure with CMAKE_PREFIX_PATH=<prefix>" \
  cmake -S "$here/host" -B "$cmake_host" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="$cflags" -DCMAKE_BUILD_TYPE=Release
check "the package found is this tree's" equals \
  "$(sed -n 's/^Velmora_DIR:PATH=//p' "$cmake_host/CMakeCache.txt")" "$lib/cmake/Velmora"
check "build" cmake --build "$cmake_host"
check "host links the tree's libvelmora.so.$major alone" \
  links_velmora_alone "$cmake_host/velmora_host"
check "host runs: Init of both cameras, stitch of six shots, codes, files, banner $version" \
  run_host "$cmake_host/velmora_host" cmake
check "find_package(Velmora 2.0) is refused" \
  bash -c "! cmake -S '$here/host' -B '$scratch/cmake-host-2' -DCMAKE_PREFIX_PATH='$prefix' \
             -DCMAKE_C_COMPILER='$cc' -DVELMORA_WANTED_VERSION=2.0"

echo "== host through pkg-config"
export PKG_CONFIG_PATH=$lib/pkgconfig
check "pkg-config --modversion velmora is $version" \
  equals "$(pkg-config --modversion velmora)" "$version"
check "pkg-config --libs velmora is -lvelmora alone" \
  equals "$(pkg-config --libs-only-l velmora | xargs)" "-lvelmora"
pc_libdir=$(pkg-config --variable=libdir velmora)
check "pkg-config's libdir is the tree's" equals "$(cd "$pc_libdir" && pwd)" "$lib"
# shellcheck disable=SC2046,SC2086
check "build with cc \$(pkg-config --cflags --libs velmora)" \
  "$cc" -std=c99 -Wall -Wextra -Werror -pedantic $cflags "$here/../host/fault_host.c" \
  $(pkg-config --cflags velmora) -o "$scratch/pkg-config-host" $(pkg-config --libs velmora) \
  -Wl,-rpath,"$pc_libdir"
check "host links the tree's libvelmora.so.$major alone" \
  links_velmora_alone "$scratch/pkg-config-host"
check "host runs: Init of both cameras, stitch of six shots, codes, files, banner $version" \
  run_host "$scratch/pkg-config-host" pkg-config
finish
