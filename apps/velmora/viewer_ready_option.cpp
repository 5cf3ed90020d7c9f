#include "velmora/viewer_ready_option.h"

#include <iostream>

namespace velmora::tool {

CLI::Option* addHeadingOption(CLI::App& command, double& heading) {
  return command
      .add_option("--heading", heading,
                  "Compass heading of the head's first position, degrees clockwise from north")
      ->check(CLI::Range(0.0, 360.0))
      ->capture_default_str();
}

CLI::Option* ViewerReadyOption::configure(CLI::App& command) {
  CLI::Option* flag = command.add_flag(
      "--export360", requested_,
      "Also write the panorama viewer-ready (NAME_360.jpg beside it: no bands, 360 metadata)");
  addHeadingOption(command, heading_)->needs(flag);
  return flag;
}

std::string ViewerReadyOption::writeBeside(const std::string& panoramaPath,
                                           const std::string& cameraShot) const {
  ViewerReadyDetails details;
  details.firstPositionHeading = heading_;
  details.cameraShot = cameraShot;
  const std::string path = viewerReadyPathBeside(panoramaPath);
  exportViewerReady(panoramaPath, path, details);
  std::cout << "Viewer-ready panorama written to " << path << std::endl;
  return path;
}

}  // namespace velmora::tool
