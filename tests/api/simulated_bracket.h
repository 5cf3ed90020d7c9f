// A test fixture for the public interface: a bracket of the simulated Up camera (exposures 0.5,
// 1 and 2 at each head position) made once per test suite, and for each test a fresh stitch
// handle and working folder.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "support/test_support.h"
#include "velmora.h"

namespace velmora::testing {

using Lines = std::vector<std::string>;
constexpr unsigned kFailed = 0xFFFFFFFFu;

inline std::vector<const char*> pointers(const std::vector<std::string>& paths) {
  std::vector<const char*> result;
  for (const auto& path : paths) result.push_back(path.c_str());
  return result;
}

class SimulatedBracket : public ::testing::Test {
 protected:
  static constexpr int kShotWidth = 228, kShotHeight = 152, kGridWidth = 390, kGridHeight = 200;

  static void SetUpTestSuite() {
    shots_ = std::make_unique<TempDir>();
    sim::SimulationRequest request;
    request.camera = sim::RigCamera::Up;
    request.shotSize = sim::ShotSize{kShotWidth, kShotHeight};
    request.gridWidth = kGridWidth;
    request.gridHeight = kGridHeight;
    request.exposures = {0.5f, 1.0f, 2.0f};
    request.outputDir = shots_->path().string();
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

}  // namespace velmora::testing
