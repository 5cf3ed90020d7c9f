// Simulates one camera of the rig end to end: renders its six shots (or six brackets) from a
// scene and writes them, its configuration file and the ground truth into a folder.
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "sim/rig_camera.h"
#include "sim/shot_renderer.h"

namespace velmora::sim {

struct SimulationRequest {
  RigCamera camera = RigCamera::Down;
  // The shot size as the host passes it to Init (width, height).
  ShotSize shotSize = kRealShotSize;
  // The camera's panorama grid (Init's outWidth, outHeight).
  int gridWidth = 8192;
  int gridHeight = 4096;
  // The calibration to render with and to write; defaultCalibration when empty.
  std::optional<CameraCalibration> calibration;
  Parallax parallax;
  // One factor: one shot per head position. Several: a bracket of that many shots per position,
  // the same light at each factor.
  std::vector<float> exposures{1.0f};
  // Gaussian noise in 8-bit levels, the same for every shot; each shot gets its own noise.
  float noiseSigma = 0.0f;
  uint64_t seed = 1;
  // Existing or creatable folder; the files are named after the camera (rig_simulation.cpp).
  std::string outputDir;
  // ".jpg", ".jpeg" or ".png": the shots' format. The ground truth is always PNG.
  std::string shotExtension = ".jpg";
  bool writeGroundTruth = true;
};

struct SimulatedFiles {
  // <dir>/Up.txt or <dir>/Down.txt: the library selects the camera by this name.
  std::string configPath;
  // shots[position][bracket]: <dir>/Up_<position><ext> for single shots,
  // <dir>/Up_<position>_<bracket><ext> for brackets.
  std::array<std::vector<std::string>, 6> shots;
  // <dir>/Up_truth.png: the scene on the grid, framed as the library frames its panorama.
  std::string truthPath;
  // <dir>/Up_seen.png: 255 where the six shots see the framed panorama, 0 elsewhere.
  std::string seenPath;
};

// Renders and writes everything the request asks for. Throws Failure for an invalid request
// (sizes, exposures, extension, scene) or a file that cannot be written; the files this call had
// written by then are removed again.
SimulatedFiles simulateCamera(const cv::Mat& scene, const SimulationRequest& request);

// The six shot paths of one bracket index in head-position order, ready for the library.
std::vector<std::string> shotsOfBracket(const SimulatedFiles& files, size_t bracket);

// The shot the rig video shows and the video's path, named as the HDR stitch looks for it beside
// that shot: shot 16 of a bracket (position 5, the middle exposure), or position 5's only shot.
struct RigVideoFiles {
  std::string shotPath;
  std::string videoPath;
};
RigVideoFiles rigVideoFiles(const SimulatedFiles& files);

}  // namespace velmora::sim
