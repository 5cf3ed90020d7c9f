// velmora demo: the whole path on built-in data. Generates the scene, simulates both cameras'
// shots with parallax, stitches each camera through the library and writes the panoramas next
// to their ground truth, with how closely they match it, and a report page to look at them.
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <stdexcept>

#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "sim/stitch_agreement.h"
#include "velmora/command.h"
#include "velmora/demo_report.h"
#include "velmora/tool_support.h"
#include "velmora/viewer_assets.h"
#include "velmora/viewer_ready_option.h"

namespace velmora::tool {

namespace {

// "PSNR 41.20 dB, SSIM 0.9876"
std::string figures(const sim::Agreement& agreement) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << "PSNR " << agreement.psnr << " dB, SSIM "
       << std::setprecision(4) << agreement.ssim;
  return text.str();
}

void printAgreement(const sim::PanoramaAgreement& agreement) {
  std::cout << "  against the truth over the seen region less its " << sim::kSeenRimPixels
            << "-pixel rim: " << figures(agreement.whole) << std::endl;
  for (int band = 0; band < sim::kHeadPositions; ++band) {
    std::cout << "    seam band " << band << ": "
              << (agreement.bands[band].pixels > 0 ? figures(agreement.bands[band])
                                                   : std::string("nothing seen"))
              << std::endl;
  }
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
    viewerReady_.configure(command);
  }

  int run() override {
    namespace fs = std::filesystem;
    const std::string shotDir = outputDir_ + "/shots";
    const std::string tableDir = outputDir_ + "/tables";
    fs::create_directories(shotDir);
    fs::create_directories(tableDir);
    // The viewer's files first: without them there would be no report to look at.
    const std::string reportDir = outputDir_ + "/report";
    copyViewerAssets(reportDir);

    std::cout << "Generating the built-in scene (" << grid_.width << "x" << grid_.height << ")"
              << std::endl;
    cv::Mat scene = sim::makeBuiltinScene(grid_.width, grid_.height);
    // Softened a little, as a lens would: the grid then holds no detail finer than the shots
    // resolve, and the comparison with the truth measures the stitch, not the resampling.
    cv::GaussianBlur(scene, scene, cv::Size(0, 0), 1.0);
    const std::string scenePath = outputDir_ + "/scene.png";
    if (!cv::imwrite(scenePath, scene)) throw std::runtime_error("Cannot write " + scenePath);

    ReportContent report;
    report.title = "Velmora demo";
    report.summary = reportSummary();
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
      std::cout << name << " panorama: " << panoramaPath << std::endl
                << "  ground truth " << files.truthPath << ", seen region " << files.seenPath
                << std::endl;
      const ReportPanorama entry =
          demoReportPanorama({name, panoramaPath, files.truthPath, files.seenPath}, reportDir);
      printAgreement(*entry.agreement);
      report.panoramas.push_back(entry);
      if (viewerReady_.requested()) {
        viewerReady_.writeBeside(panoramaPath, sim::shotsOfBracket(files, 0).front());
      }
    }
    std::cout << "Shots and configurations in " << shotDir << ", tables in " << tableDir
              << std::endl;
    writeReportPage(reportDir, report);
    std::cout << "Report written to " << reportDir << "/index.html; to look at it, run "
              << toolExecutable().string() << " view " << reportDir
              << " and open the address it prints." << std::endl;
    return allStitched ? 0 : 1;
  }

 private:
  std::string reportSummary() const {
    std::ostringstream text;
    text << "The built-in scene on a " << grid_.width << "x" << grid_.height
         << " grid; six shots of each camera simulated from it (" << shotSize_.width << "x"
         << shotSize_.height << ", nodal point " << parallax_.nodalOffset
         << " m off the rotation axis, scene " << parallax_.sceneRadius
         << " m away), stitched by the library and compared with the ground truth.";
    return text.str();
  }

  std::string outputDir_ = "velmora-demo";
  PixelSize shotSize_{2736, 1824};
  PixelSize grid_{4096, 2048};
  // A nodal point 5 cm off the axis and a scene 4 m away: a few pixels of parallax at the seams.
  sim::Parallax parallax_{0.05, 4.0};
  ViewerReadyOption viewerReady_;
};

const CommandRegistration<DemoCommand> registration;

}  // namespace

}  // namespace velmora::tool
