// velmora demo: the whole path on built-in data. Generates the scene, simulates both cameras'
// shots with parallax, stitches each camera through the library and writes the panoramas next
// to their ground truth, with how closely they match it.
#include <cmath>
#include <filesystem>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "velmora/command.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

// PSNR of the panorama against the truth over the pixels the seen mask marks fully (255).
double seenPsnr(const cv::Mat& panorama, const cv::Mat& truth, const cv::Mat& seen) {
  cv::Mat difference;
  cv::absdiff(panorama, truth, difference);
  difference.convertTo(difference, CV_32F);
  difference = difference.mul(difference);
  const cv::Mat outside = seen != 255;
  difference.setTo(cv::Scalar::all(0), outside);
  const double count = 3.0 * cv::countNonZero(seen == 255);
  if (count == 0) return 0.0;
  const cv::Scalar sums = cv::sum(difference);
  const double mse = (sums[0] + sums[1] + sums[2]) / count;
  return 10.0 * std::log10(255.0 * 255.0 / std::max(mse, 1e-10));
}

class DemoCommand : public Command {
 public:
  const char* name() const override { return "demo"; }
  const char* summary() const override {
    return "Simulate both cameras on the built-in scene, stitch them and compare with the truth.";
  }

  void configure(CLI::App& command) override {
    command.add_option("-o,--out", outputDir_, "Folder for everything the demo writes")
        ->capture_default_str();
    addSizeOption(command, "--shot-size", shotSize_, "Size of the simulated shots");
    addSizeOption(command, "--grid", grid_, "Panorama size");
    command
        .add_option("--nodal-offset", parallax_.nodalOffset,
                    "Distance of the nodal point from the rotation axis, metres")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        .add_option("--scene-radius", parallax_.sceneRadius,
                    "Distance of the scene, metres; 0: infinitely far")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
  }

  int run() override {
    namespace fs = std::filesystem;
    const std::string shotDir = outputDir_ + "/shots";
    const std::string tableDir = outputDir_ + "/tables";
    fs::create_directories(shotDir);
    fs::create_directories(tableDir);

    std::cout << "Generating the built-in scene (" << grid_.width << "x" << grid_.height << ")"
              << std::endl;
    const cv::Mat scene = sim::makeBuiltinScene(grid_.width, grid_.height);
    const std::string scenePath = outputDir_ + "/scene.png";
    if (!cv::imwrite(scenePath, scene)) throw std::runtime_error("Cannot write " + scenePath);

    StitchSession session;
    bool allStitched = true;
    for (sim::RigCamera camera : {sim::RigCamera::Up, sim::RigCamera::Down}) {
      const std::string name = sim::cameraName(camera);
      std::cout << "Simulating the " << name << " camera's six shots (" << shotSize_.width << "x"
                << shotSize_.height << ")" << std::endl;
      sim::SimulationRequest request;
      request.camera = camera;
      request.shotSize = sim::ShotSize{shotSize_.width, shotSize_.height};
      request.gridWidth = grid_.width;
      request.gridHeight = grid_.height;
      request.parallax = parallax_;
      request.outputDir = shotDir;
      const sim::SimulatedFiles files = sim::simulateCamera(scene, request);

      const std::string panoramaPath = outputDir_ + "/" + name + "_panorama.jpg";
      int code = session.init(files.configPath, tableDir, shotSize_, grid_);
      if (code == 0) {
        code = session.stitch(files.configPath, sim::shotsOfBracket(files, 0), panoramaPath, 1.0f,
                              1.0f, 1.0f);
      }
      if (code != 0) {
        std::cerr << "velmora demo: stitching the " << name << " camera failed with status " << code
                  << "." << std::endl;
        allStitched = false;
        continue;
      }
      const cv::Mat panorama = cv::imread(panoramaPath, cv::IMREAD_COLOR);
      const cv::Mat truth = cv::imread(files.truthPath, cv::IMREAD_COLOR);
      const cv::Mat seen = cv::imread(files.seenPath, cv::IMREAD_GRAYSCALE);
      std::cout << name << " panorama: " << panoramaPath << std::endl
                << "  ground truth " << files.truthPath << ", seen region " << files.seenPath
                << std::endl;
      if (!panorama.empty() && panorama.size() == truth.size()) {
        std::cout << "  PSNR against the truth over the seen region: "
                  << seenPsnr(panorama, truth, seen) << " dB" << std::endl;
      }
    }
    std::cout << "Shots and configurations in " << shotDir << ", tables in " << tableDir
              << std::endl;
    return allStitched ? 0 : 1;
  }

 private:
  std::string outputDir_ = "velmora-demo";
  PixelSize shotSize_{2736, 1824};
  PixelSize grid_{4096, 2048};
  // A nodal point 5 cm off the axis and a scene 4 m away: a few pixels of parallax at the seams.
  sim::Parallax parallax_{0.05, 4.0};
};

const CommandRegistration<DemoCommand> registration;

}  // namespace

}  // namespace velmora::tool
