#include "tools/video_stitcher_command.h"

namespace velmora {

StitcherOutput splitOutputPath(const std::string& outputPath) {
  const size_t slash = outputPath.rfind('/');
  StitcherOutput output;
  std::string name;
  if (slash == std::string::npos) {
    output.directory = ".";
    name = outputPath;
  } else {
    output.directory = slash == 0 ? "/" : outputPath.substr(0, slash);
    name = outputPath.substr(slash + 1);
  }
  const size_t dot = name.rfind('.');
  output.stem = (dot == std::string::npos || dot == 0) ? name : name.substr(0, dot);
  return output;
}

std::string videoStitcherCommand(const std::string& videoPath, const StitcherOutput& output,
                                 char separator) {
  return toNativeSeparators(std::string("zemu-ffmpeg-velmora -s ") + videoPath + " -r " +
                                kVideoCrop + " " + " -n " + output.stem + " -o " + output.directory,
                            separator);
}

}  // namespace velmora
