// The command line of the external video stitcher, "zemu-ffmpeg-velmora".
#pragma once

#include <string>

#include "tools/path_separators.h"

namespace velmora {

// Where the external stitcher puts its result: a directory and a file stem.
struct StitcherOutput {
  std::string directory;
  std::string stem;
};

// Splits an output path: the directory is the text before the last "/", the stem the last
// component up to (not including) its last ".". "D:/out/scene.mp4" gives "D:/out" and "scene".
// Without a "/" the directory is "."; a last component without a "." (or whose only "." leads
// it, as in ".hidden") is the stem whole; "/scene.mp4" gives the directory "/".
StitcherOutput splitOutputPath(const std::string& outputPath);

// The crop of the rig's video that the stitcher works on, as its -r option takes it.
inline constexpr char kVideoCrop[] = "w=3630:h=2670:x=184:y=176";

// "zemu-ffmpeg-velmora -s <video> -r w=3630:h=2670:x=184:y=176  -n <stem> -o <directory>" (two
// blanks before "-n"; paths unquoted) with every "/" replaced by `separator`.
std::string videoStitcherCommand(const std::string& videoPath, const StitcherOutput& output,
                                 char separator = kNativeSeparator);

}  // namespace velmora
