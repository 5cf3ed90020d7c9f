// velmora scene: writes the built-in equirectangular scene to an image file.
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "sim/builtin_scene.h"
#include "velmora/command.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

class SceneCommand : public Command {
 public:
  const char* name() const override { return "scene"; }
  const char* summary() const override {
    return "Write the built-in equirectangular scene to an image file.";
  }

  void configure(CLI::App& command) override {
    command.add_option("output", outputPath_, "Image file to write (format by extension)")
        ->required();
    addSizeOption(command, "--size", size_, "Scene size");
  }

  int run() override {
    const cv::Mat scene = sim::makeBuiltinScene(size_.width, size_.height);
    bool written = false;
    try {
      written = cv::imwrite(outputPath_, scene);
    } catch (const cv::Exception&) {
      written = false;
    }
    if (!written) throw std::runtime_error("Cannot write " + outputPath_ + ".");
    std::cout << "Scene of " << size_.width << "x" << size_.height << " written to " << outputPath_
              << std::endl;
    return 0;
  }

 private:
  std::string outputPath_;
  PixelSize size_{8192, 4096};
};

const CommandRegistration<SceneCommand> registration;

}  // namespace

}  // namespace velmora::tool
