#!/usr/bin/env bash
# Installs a build into a scratch prefix with `cmake --install` and checks the installed tree
# with check_installed_tree.sh (files, and a C host built against it both ways).
#
#   install_test.sh <build folder> <libdir> <version> <tool: yes|no> <C compiler> [C flags]
set -euo pipefail
build=$1
shift
here=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
"$here/check_installed_tree.sh" "$prefix" "$@"
