// velmora stitch: stitches the six single-exposure shots of one camera into a framed panorama
// through the library (Init, then the single-exposure stitch).
#include <iostream>
#include <stdexcept>

#include "velmora/command.h"
#include "velmora/tool_support.h"
#include "velmora/viewer_ready_option.h"

namespace velmora::tool {

namespace {

class StitchCommand : public Command {
 public:
  const char* name() const override { return "stitch"; }
  const char* summary() const override {
    return "Stitch the six shots of one camera into a panorama.";
  }

  void configure(CLI::App& command) override {
    command
        .add_option("-c,--config", configPath_,
                    "Camera configuration (a file name beginning with 'Up.' or 'D')")
        ->required()
        ->check(CLI::ExistingFile);
    addCameraGridOptions(command, tableDir_, shotSize_, grid_, "Size of every shot",
                         "Panorama size");
    command.add_option("-o,--out", outputPath_, "Panorama file to write (format by extension)")
        ->required();
    command.add_option("--gains", gains_, "Red, green and blue gains")->capture_default_str();
    command.add_option("shots", shots_, "The six shots in head-position order")
        ->required()
        ->expected(6)
        ->check(CLI::ExistingFile);
    viewerReady_.configure(command);
  }

  int run() override {
    const std::vector<float> gains = parsePositiveList(gains_, 3);
    StitchSession session;
    int code = session.init(configPath_, tableDir_, shotSize_, grid_);
    if (code == 0)
      code = session.stitch(configPath_, shots_, outputPath_, gains[0], gains[1], gains[2]);
    if (code != 0) {
      std::cerr << "velmora stitch: the library reported status " << code
                << "; no panorama was written." << std::endl;
      return 1;
    }
    std::cout << "Panorama written to " << outputPath_ << std::endl;
    if (viewerReady_.requested()) viewerReady_.writeBeside(outputPath_, shots_.front());
    return 0;
  }

 private:
  std::string configPath_;
  std::string tableDir_;
  std::string outputPath_;
  PixelSize shotSize_{5472, 3648};
  PixelSize grid_{8192, 4096};
  std::string gains_ = "1,1,1";
  std::vector<std::string> shots_;
  ViewerReadyOption viewerReady_;
};

const CommandRegistration<StitchCommand> registration;

}  // namespace

}  // namespace velmora::tool
