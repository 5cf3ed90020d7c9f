#!/usr/bin/env bash
# Installs a build into a scratch prefix with `cmake --install` and checks the installed tree
# with check_installed_tree.sh (files, and a C host built against it both ways) and its Python
# package with check_python_package.sh (left out for a sanitizer build, whose library an
# uninstrumented python3 cannot load).
#
#   install_test.sh <build folder> <libdir> <version> <tool: yes|no> <C compiler> [C flags]
set -euo pipefail
build=$1
shift
libdir=$1
version=$2
here=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
"$here/check_installed_tree.sh" "$prefix" "$@"

cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
if [ "$(cached VELMORA_SANITIZE)" = ON ] || [ "$(cached VELMORA_TSAN)" = ON ]; then
  echo "== the Python package: not checked, the library is built with sanitizers"
else
  "$here/check_python_package.sh" "$prefix" "$(cached VELMORA_INSTALL_PYTHONDIR)" "$libdir" \
    "$version"
fi
