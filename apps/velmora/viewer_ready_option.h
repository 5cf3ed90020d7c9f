// The --export360 option of the commands that write panoramas: the viewer-ready file beside the
// library's one.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "velmora/equirect_export.h"

namespace velmora::tool {

// --heading: the compass heading of the head's first position, 0 to 360 degrees.
CLI::Option* addHeadingOption(CLI::App& command, double& heading);

class ViewerReadyOption {
 public:
  // Adds --export360 and --heading to the command; returns the --export360 flag.
  CLI::Option* configure(CLI::App& command);
  bool requested() const { return requested_; }
  // Writes viewerReadyPathBeside(panoramaPath), taking the camera details of `cameraShot`
  // (empty: none), says so on standard output and returns its path.
  std::string writeBeside(const std::string& panoramaPath, const std::string& cameraShot) const;

 private:
  bool requested_ = false;
  double heading_ = 0.0;
};

}  // namespace velmora::tool
