// velmora init: initialises a camera through the library, which writes the camera's projection
// table cache (table_Up.bin or table_Down.bin) when it is missing.
#include <iostream>

#include "velmora/command.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

class InitCommand : public Command {
 public:
  const char* name() const override { return "init"; }
  const char* summary() const override {
    return "Initialise a camera: check its configuration and build its projection table.";
  }

  void configure(CLI::App& command) override {
    command
        .add_option("-c,--config", configPath_,
                    "Camera configuration (a file name beginning with 'Up.' or 'D')")
        ->required()
        ->check(CLI::ExistingFile);
    addCameraGridOptions(command, tableDir_, shotSize_, grid_, "Shot size", "Panorama grid");
  }

  int run() override {
    StitchSession session;
    const int code = session.init(configPath_, tableDir_, shotSize_, grid_);
    if (code != 0) {
      std::cerr << "velmora init: the library reported status " << code << "." << std::endl;
      return 1;
    }
    std::cout << "Camera of " << configPath_ << " ready; tables in " << tableDir_ << std::endl;
    return 0;
  }

 private:
  std::string configPath_;
  std::string tableDir_;
  PixelSize shotSize_{5472, 3648};
  PixelSize grid_{8192, 4096};
};

const CommandRegistration<InitCommand> registration;

}  // namespace

}  // namespace velmora::tool
