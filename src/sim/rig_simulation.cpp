#include "sim/rig_simulation.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <system_error>

#include "common/status.h"
#include "rig/rig_video_path.h"
#include "sim/ground_truth.h"
#include "sim/shot_exposure.h"
#include "sim/simulated_camera.h"

namespace velmora::sim {

namespace {

namespace fs = std::filesystem;

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

void checkRequest(const cv::Mat& scene, const SimulationRequest& request) {
  if (scene.type() != CV_8UC3 || scene.cols < 2 || scene.rows < 2) {
    throw Failure("The scene must be an 8-bit colour image of at least 2x2 pixels.");
  }
  if (request.exposures.empty()) throw Failure("At least one exposure factor is needed.");
  for (float factor : request.exposures) {
    if (!(factor > 0.0f)) throw Failure("Exposure factors must be positive.");
  }
  const std::string extension = lowerCase(request.shotExtension);
  if (extension != ".jpg" && extension != ".jpeg" && extension != ".png") {
    throw Failure("Shots are written as .jpg, .jpeg or .png, not '" + request.shotExtension + "'.");
  }
  if (request.outputDir.empty()) throw Failure("No output folder given.");
}

// A different, reproducible noise seed for every shot (splitmix64 finaliser).
uint64_t shotSeed(uint64_t seed, RigCamera camera, int position, size_t bracket) {
  uint64_t z = seed + 0x9e3779b97f4a7c15ull * (1 + (camera == RigCamera::Up ? 0 : 1) +
                                               2 * (static_cast<uint64_t>(position) + 6 * bracket));
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

// Remembers every file written so that a failed simulation can take them back.
class WrittenFiles {
 public:
  ~WrittenFiles() {
    if (committed_) return;
    for (const std::string& path : paths_) {
      std::error_code ignored;
      if (fs::is_regular_file(path, ignored)) fs::remove(path, ignored);
    }
  }

  void image(const std::string& path, const cv::Mat& image) {
    paths_.push_back(path);
    bool written = false;
    try {
      written = cv::imwrite(path, image);
    } catch (const cv::Exception&) {
      written = false;
    }
    if (!written) throw Failure("Cannot write the image " + path + ".");
  }

  void calibration(const std::string& path, const CameraCalibration& calibration) {
    paths_.push_back(path);
    writeCalibration(calibration, path);
  }

  void commit() { committed_ = true; }

 private:
  std::vector<std::string> paths_;
  bool committed_ = false;
};

}  // namespace

SimulatedFiles simulateCamera(const cv::Mat& scene, const SimulationRequest& request) {
  checkRequest(scene, request);
  const CameraGeometry geometry =
      rigGeometry(request.camera, request.shotSize, request.gridWidth, request.gridHeight);
  const CameraCalibration calibration = request.calibration
                                            ? *request.calibration
                                            : defaultCalibration(request.camera, request.shotSize);
  const SimulatedCamera camera(calibration, geometry);
  const EquirectScene equirect(scene);

  std::error_code error;
  fs::create_directories(request.outputDir, error);
  if (!fs::is_directory(request.outputDir)) {
    throw Failure("Cannot create the output folder " + request.outputDir + ".");
  }
  const std::string stem = request.outputDir + "/" + cameraName(request.camera);

  SimulatedFiles files;
  WrittenFiles written;
  files.configPath = stem + ".txt";
  written.calibration(files.configPath, calibration);

  const bool bracketed = request.exposures.size() > 1;
  for (int position = 0; position < kHeadPositions; ++position) {
    const cv::Mat light = renderShotLight(equirect, camera, position, request.parallax);
    for (size_t bracket = 0; bracket < request.exposures.size(); ++bracket) {
      Exposure exposure;
      exposure.factor = request.exposures[bracket];
      exposure.noiseSigma = request.noiseSigma;
      exposure.seed = shotSeed(request.seed, request.camera, position, bracket);
      const std::string path = stem + "_" + std::to_string(position) +
                               (bracketed ? "_" + std::to_string(bracket) : std::string()) +
                               request.shotExtension;
      written.image(path, developShot(light, exposure));
      files.shots[position].push_back(path);
    }
  }

  if (request.writeGroundTruth) {
    files.truthPath = stem + "_truth.png";
    files.seenPath = stem + "_seen.png";
    written.image(files.truthPath,
                  frameLikeLibrary(panoramaTruth(equirect, request.gridWidth, request.gridHeight)));
    written.image(files.seenPath, frameLikeLibrary(seenRegion(camera)));
  }
  written.commit();
  return files;
}

std::vector<std::string> shotsOfBracket(const SimulatedFiles& files, size_t bracket) {
  std::vector<std::string> paths;
  for (const auto& position : files.shots) {
    if (bracket >= position.size()) throw Failure("No bracket " + std::to_string(bracket) + ".");
    paths.push_back(position[bracket]);
  }
  return paths;
}

RigVideoFiles rigVideoFiles(const SimulatedFiles& files) {
  const std::vector<std::string>& position = files.shots[5];
  if (position.empty()) throw Failure("No shot at head position 5.");
  const std::string& shotPath = position[std::min<size_t>(1, position.size() - 1)];
  return RigVideoFiles{shotPath, videoPathForShot(shotPath)};
}

}  // namespace velmora::sim
