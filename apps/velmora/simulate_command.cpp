// velmora simulate: renders the six shots of one or both rig cameras from an equirectangular
// scene (a file or the built-in scene) and writes them with each camera's configuration file and
// the ground truth; on request also the rig video beside the upper camera's shots.
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "velmora/command.h"
#include "velmora/external_programs.h"
#include "velmora/rig_video.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

class SimulateCommand : public Command {
 public:
  const char* name() const override { return "simulate"; }
  const char* summary() const override {
    return "Render the six shots of a rig camera from an equirectangular scene.";
  }

  void configure(CLI::App& command) override {
    command.add_option("-o,--out", outputDir_, "Folder for the shots, configurations and truth")
        ->required();
    command
        .add_option("--scene", scenePath_,
                    "Equirectangular scene image (default: the built-in scene)")
        ->check(CLI::ExistingFile);
    addSizeOption(command, "--scene-size", sceneSize_,
                  "Size of the built-in scene (default: the grid size)");
    command.add_option("--camera", camera_, "Which camera to simulate")
        ->check(CLI::IsMember({"up", "down", "both"}))
        ->capture_default_str();
    command
        .add_option("--config", configPath_,
                    "Camera configuration to render with (one camera only; default: the "
                    "simulator's calibration for the shot size)")
        ->check(CLI::ExistingFile);
    addSizeOption(command, "--shot-size", shotSize_, "Shot size as passed to Init");
    addSizeOption(command, "--grid", grid_, "Panorama grid as passed to Init");
    command
        .add_option("--nodal-offset", parallax_.nodalOffset,
                    "Distance of the nodal point from the rotation axis (parallax)")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        .add_option("--scene-radius", parallax_.sceneRadius,
                    "Radius of the scene sphere in the same unit; 0: infinitely far")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        .add_option("--exposures", exposures_,
                    "Exposure factor, or several comma-separated for a bracket (e.g. 2,1,0.5: "
                    "brightest first, as the HDR stitch takes them)")
        ->capture_default_str();
    command.add_option("--noise", noise_, "Gaussian noise, standard deviation in 8-bit levels")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command.add_option("--seed", seed_, "Seed of the noise")->capture_default_str();
    command.add_option("--format", format_, "Shot file format")
        ->check(CLI::IsMember({"jpg", "png"}))
        ->capture_default_str();
    command.add_flag("--no-truth", noTruth_, "Do not write the ground truth");
    command.add_flag("--video", writeVideo_,
                     "Also write the rig video beside the upper camera's shots, named as the HDR "
                     "stitch looks for it (needs ffmpeg and shots of at least 4736x3324)");
  }

  int run() override {
    if (!configPath_.empty() && camera_ == "both") {
      throw std::invalid_argument("--config needs --camera up or --camera down.");
    }
    exposureList_ = parsePositiveList(exposures_);
    if (writeVideo_) checkVideoRequest();
    const cv::Mat scene = loadScene();
    for (sim::RigCamera camera : {sim::RigCamera::Up, sim::RigCamera::Down}) {
      if (camera_ == (camera == sim::RigCamera::Up ? "down" : "up")) continue;
      const sim::SimulatedFiles files = sim::simulateCamera(scene, request(camera));
      report(camera, files);
      if (writeVideo_ && camera == sim::RigCamera::Up) writeVideoBeside(files);
    }
    return 0;
  }

 private:
  cv::Mat loadScene() const {
    if (scenePath_.empty()) {
      const PixelSize size = sceneSize_.width > 0 ? sceneSize_ : grid_;
      return sim::makeBuiltinScene(size.width, size.height);
    }
    cv::Mat scene = cv::imread(scenePath_, cv::IMREAD_COLOR);
    if (scene.empty()) throw std::runtime_error("Cannot read the scene image " + scenePath_ + ".");
    return scene;
  }

  sim::SimulationRequest request(sim::RigCamera camera) const {
    sim::SimulationRequest request;
    request.camera = camera;
    request.shotSize = sim::ShotSize{shotSize_.width, shotSize_.height};
    request.gridWidth = grid_.width;
    request.gridHeight = grid_.height;
    if (!configPath_.empty()) request.calibration = sim::readCalibration(configPath_);
    request.parallax = parallax_;
    request.exposures = exposureList_;
    request.noiseSigma = noise_;
    request.seed = seed_;
    request.outputDir = outputDir_;
    request.shotExtension = "." + format_;
    request.writeGroundTruth = !noTruth_;
    return request;
  }

  void checkVideoRequest() const {
    if (camera_ == "down") throw std::invalid_argument("--video needs the upper camera.");
    if (shotSize_.width < kVideoFrameRegion.br().x || shotSize_.height < kVideoFrameRegion.br().y) {
      throw std::invalid_argument(
          "--video needs shots of at least 4736x3324: a video frame is "
          "the 4000x3000 region at column 736, row 324 of a shot.");
    }
    requireProgram("ffmpeg", "--video encodes the rig video with ffmpeg");
  }

  void writeVideoBeside(const sim::SimulatedFiles& files) const {
    const sim::RigVideoFiles video = sim::rigVideoFiles(files);
    const cv::Mat shot = cv::imread(video.shotPath, cv::IMREAD_COLOR);
    writeRigVideo(shot, video.videoPath);
    std::cout << "  rig video     " << video.videoPath << " (2 s of the video camera's view of "
              << video.shotPath << ")" << std::endl;
  }

  void report(sim::RigCamera camera, const sim::SimulatedFiles& files) const {
    const size_t brackets = files.shots[0].size();
    std::cout << sim::cameraName(camera) << " camera: " << 6 * brackets << " shots of "
              << shotSize_.width << "x" << shotSize_.height << " (" << files.shots[0][0] << " ... "
              << files.shots[5].back() << ")" << std::endl;
    std::cout << "  configuration " << files.configPath << std::endl;
    if (!files.truthPath.empty()) {
      std::cout << "  ground truth  " << files.truthPath << " (" << grid_.width << "x"
                << grid_.height << ", seen region " << files.seenPath << ")" << std::endl;
    }
  }

  std::string outputDir_;
  std::string scenePath_;
  PixelSize sceneSize_{0, 0};
  std::string camera_ = "both";
  std::string configPath_;
  PixelSize shotSize_{5472, 3648};
  PixelSize grid_{8192, 4096};
  sim::Parallax parallax_;
  std::string exposures_ = "1";
  std::vector<float> exposureList_;
  float noise_ = 0.0f;
  uint64_t seed_ = 1;
  std::string format_ = "jpg";
  bool noTruth_ = false;
  bool writeVideo_ = false;
};

const CommandRegistration<SimulateCommand> registration;

}  // namespace

}  // namespace velmora::tool
