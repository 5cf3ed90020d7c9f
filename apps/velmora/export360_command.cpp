// velmora export360: the viewer-ready form of a panorama the library wrote (bands off, the
// sphere's geometry restored, photo-sphere metadata), for panorama viewers and photo platforms.
#include <iostream>

#include "velmora/command.h"
#include "velmora/equirect_export.h"
#include "velmora/viewer_ready_option.h"

namespace velmora::tool {

namespace {

class Export360Command : public Command {
 public:
  const char* name() const override { return "export360"; }
  const char* summary() const override {
    return "Write a panorama of the library as a viewer-ready 360 JPEG with its metadata.";
  }

  void configure(CLI::App& command) override {
    command.add_option("panorama", inputPath_, "A panorama the library wrote (framed)")
        ->required()
        ->check(CLI::ExistingFile);
    command.add_option("out", outputPath_, "The viewer-ready JPEG to write")->required();
    command
        .add_option("--camera-shot", details_.cameraShot,
                    "A shot whose make, model, capture time and GPS position the file takes over")
        ->check(CLI::ExistingFile);
    addHeadingOption(command, details_.firstPositionHeading);
  }

  int run() override {
    const SphereWindow window = exportViewerReady(inputPath_, outputPath_, details_);
    std::cout << "Viewer-ready panorama written to " << outputPath_ << " (" << window.width << "x"
              << window.height << " of a " << window.fullWidth << "x" << window.fullHeight
              << " sphere)" << std::endl;
    return 0;
  }

 private:
  std::string inputPath_;
  std::string outputPath_;
  ViewerReadyDetails details_;
};

const CommandRegistration<Export360Command> registration;

}  // namespace

}  // namespace velmora::tool
