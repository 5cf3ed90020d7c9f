// Simulated rigs for tests of the public interface: a bracket of the simulated Up camera made once
// per test suite (with a fresh stitch handle and working folder for each test), and a rig of
// shots large enough for the HDR stitch's video variant.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "support/test_support.h"
#include "velmora.h"

namespace velmora::testing {

// A request for the built-in scene's shots of `camera`, written to `folder`.
inline sim::SimulationRequest simulationRequest(sim::RigCamera camera, sim::ShotSize shot,
                                                int gridWidth, int gridHeight,
                                                const std::string& folder) {
  sim::SimulationRequest request;
  request.camera = camera;
  request.shotSize = shot;
  request.gridWidth = gridWidth;
  request.gridHeight = gridHeight;
  request.outputDir = folder;
  return request;
}

class SimulatedBracket : public ::testing::Test {
 protected:
  static constexpr int kShotWidth = 228, kShotHeight = 152, kGridWidth = 390, kGridHeight = 200;
  static constexpr int kBandRows = 24;  // int(200 x 0.12) black rows above and below

  static void SetUpTestSuite() {
    shots_ = std::make_unique<TempDir>();
    sim::SimulationRequest request = simulationRequest(
        sim::RigCamera::Up, {kShotWidth, kShotHeight}, kGridWidth, kGridHeight, shots_->file("s"));
    request.exposures = {0.5f, 1.0f, 2.0f};
    request.writeGroundTruth = false;
    files_ = sim::simulateCamera(sim::makeBuiltinScene(kGridWidth, kGridHeight), request);
    singles_ = sim::shotsOfBracket(files_, 1);
    slots_.clear();
    for (const auto& position : files_.shots)
      slots_.insert(slots_.end(), position.begin(), position.end());
  }
  static void TearDownTestSuite() { shots_.reset(); }
  void TearDown() override { ZEMU_DestroyOptFlowStitchHandle(handle_); }

  // Init of the camera `config` names with the bracket's sizes, tables in `tableDir`.
  void init(const std::string& config, const std::string& tableDir, int gridWidth = kGridWidth,
            int gridHeight = kGridHeight) {
    ZEMU_InitOptFlowStitchHandle(handle_, config.c_str(), tableDir.c_str(), kShotWidth, kShotHeight,
                                 gridWidth, gridHeight);
  }
  void stitch(const std::vector<std::string>& shots, const std::string& output,
              const std::string& config = files_.configPath) {
    ZEMU_ExecuteOptFlowStitchHandle(handle_, config.c_str(), pointers(shots).data(), output.c_str(),
                                    1.0f, 1.0f, 1.0f);
  }
  void hdr(const std::string& output, const std::vector<std::string>& slots = slots_,
           cv::Vec3f gains = {1, 1, 1}, int exposures = 3) {
    ZEMU_ExecuteOptFlowStitchHDRHandle(handle_, pointers(slots).data(), output.c_str(), 0, gains[0],
                                       gains[1], gains[2], exposures);
  }
  unsigned code() const { return ZEMU_GetOptFlowStitchCode(handle_); }
  std::string file(const std::string& name) const { return work_.file(name); }
  bool exists(const std::string& name) const { return std::filesystem::exists(file(name)); }

  static inline std::unique_ptr<TempDir> shots_;
  static inline sim::SimulatedFiles files_;
  static inline std::vector<std::string> singles_;  // the middle exposures
  static inline std::vector<std::string> slots_;    // 18: exposure e of position p at p x 3 + e
  TempDir work_;
  void* handle_ = ZEMU_CreateOptFlowStitchHandle();
};

// The HDR stitch's video variant cuts its tone source out of a shot of the rig's real size: one
// such shot (structure and colour everywhere, made cheaply) serves all 18 slots. Its name gives
// the rig video's: `folder`/rigvideo_00042.mp4. Both cameras are initialised on a 576 x 288 grid.
struct LargeShotRig {
  static constexpr int kShotWidth = 4736, kShotHeight = 3324;
  explicit LargeShotRig(const TempDir& folder)
      : shotPath(folder.file("rigvideo_00042_bracket.jpg")),
        video(folder.file("rigvideo_00042.mp4")) {
    cv::Mat shot(kShotHeight / 100, kShotWidth / 100, CV_8UC3);
    cv::RNG(42).fill(shot, cv::RNG::UNIFORM, 30, 220);
    cv::resize(shot, shot, cv::Size(kShotWidth, kShotHeight), 0, 0, cv::INTER_CUBIC);
    cv::imwrite(shotPath, shot);
    CapturedConsole quiet;
    for (auto camera : {sim::RigCamera::Up, sim::RigCamera::Down}) {
      const std::string config = folder.file(std::string(sim::cameraName(camera)) + ".txt");
      sim::writeCalibration(sim::defaultCalibration(camera, {kShotWidth, kShotHeight}), config);
      ZEMU_InitOptFlowStitchHandle(handle, config.c_str(), folder.path().c_str(), kShotWidth,
                                   kShotHeight, 576, 288);
    }
    slots.assign(18, shotPath.c_str());
  }
  ~LargeShotRig() { ZEMU_DestroyOptFlowStitchHandle(handle); }
  unsigned hdrWithVideo(const std::string& output) {
    ZEMU_ExecuteOptFlowStitchHDRHandle(handle, slots.data(), output.c_str(), 1, 1, 1, 1, 3);
    return ZEMU_GetOptFlowStitchCode(handle);
  }

  const std::string shotPath, video;
  void* handle = ZEMU_CreateOptFlowStitchHandle();
  std::vector<const char*> slots;
};

}  // namespace velmora::testing
