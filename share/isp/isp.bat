#!/bin/sh
# Colour step for Linux hosts of Velmora. The library runs, in its working directory,
#
#   isp.bat <profile name> <output image> <input image>
#
# and expects the colour-processed input image at <output image>. The profile is read from
# ./asset/<profile name> (the library has just copied the profile it chose there). The work is
# done by rawtherapee-cli; the result is a JPEG whatever the output's extension says (the
# library reads it back and rewrites it anyway).
set -eu

if [ "$#" -ne 3 ]; then
  echo "usage: isp.bat <profile name> <output image> <input image>" >&2
  exit 2
fi
profile="./asset/$1"
output=$2
input=$3

if [ ! -r "$profile" ]; then
  echo "isp.bat: profile $profile cannot be read" >&2
  exit 2
fi
if [ ! -r "$input" ]; then
  echo "isp.bat: input image $input cannot be read" >&2
  exit 2
fi
if ! command -v rawtherapee-cli >/dev/null 2>&1; then
  echo "isp.bat: rawtherapee-cli not found (Debian package rawtherapee)" >&2
  exit 127
fi

# A private configuration and cache, so that neither an unwritable or missing HOME nor the
# user's own RawTherapee settings change the result. rawtherapee-cli also replaces the output's
# extension by ".jpg", so it writes into this folder and the result is moved into place.
work=$(mktemp -d "${TMPDIR:-/tmp}/velmora-isp.XXXXXX")
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config"
export XDG_CACHE_HOME="$work/cache"

# -p: our profile on top of neutral values; -j95 -js3: near-lossless JPEG, no chroma
# subsampling; -Y: overwrite; -c: the input, last as rawtherapee-cli requires.
if ! rawtherapee-cli -q -p "$profile" -o "$work/result.jpg" -j95 -js3 -Y -c "$input" >/dev/null; then
  echo "isp.bat: rawtherapee-cli failed on $input" >&2
  exit 1
fi
if [ ! -s "$work/result.jpg" ]; then
  echo "isp.bat: rawtherapee-cli wrote no result for $input" >&2
  exit 1
fi
mv -f "$work/result.jpg" "$output"
