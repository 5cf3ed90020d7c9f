// Whole operations through the public interface at the sizes users shoot: six 5472 x 3648 JPEG
// shots of the Up camera onto an 8192 x 4096 panorama, and the HDR stitch of eighteen such shots
// (three exposures per head position) without the video variant.
//   ./end_to_end_bench                                  both, with wall time and peak memory
//   VELMORA_BENCH_DATA=/path ./end_to_end_bench         where the simulated inputs are kept
// The inputs are simulated from the built-in scene on the first run (about a minute) and kept in
// VELMORA_BENCH_DATA (default: /tmp/velmora-bench-data); the projection table is cached there by
// the first Init, so the runs measure what a host's repeated calls cost.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "bench_memory.h"
#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "velmora.h"

namespace {

constexpr int kShotWidth = 5472;
constexpr int kShotHeight = 3648;
constexpr int kGridWidth = 8192;
constexpr int kGridHeight = 4096;

std::string dataFolder() {
  const char* configured = std::getenv("VELMORA_BENCH_DATA");
  return configured != nullptr ? configured : "/tmp/velmora-bench-data";
}

// Simulated shots and an initialised handle, made once per process.
class Inputs {
 public:
  static Inputs& get() {
    static Inputs inputs;
    return inputs;
  }

  void* handle() const { return handle_; }
  const std::vector<std::string>& single() const { return single_; }
  const std::vector<std::string>& bracket() const { return bracket_; }
  const std::string& config() const { return config_; }
  std::string output(const char* name) const { return folder_ + "/" + name; }

 private:
  Inputs() : folder_(dataFolder()) {
    namespace fs = std::filesystem;
    const cv::Mat scene = velmora::sim::makeBuiltinScene(kGridWidth, kGridHeight);
    velmora::sim::SimulationRequest request;
    request.camera = velmora::sim::RigCamera::Up;
    request.shotSize = velmora::sim::ShotSize{kShotWidth, kShotHeight};
    request.gridWidth = kGridWidth;
    request.gridHeight = kGridHeight;
    request.writeGroundTruth = false;

    request.outputDir = folder_ + "/single";
    if (!fs::exists(request.outputDir + "/Up_5.jpg")) {
      std::cerr << "Simulating six shots into " << request.outputDir << std::endl;
      velmora::sim::simulateCamera(scene, request);
    }
    config_ = request.outputDir + "/Up.txt";
    for (int p = 0; p < 6; ++p)
      single_.push_back(request.outputDir + "/Up_" + std::to_string(p) + ".jpg");

    request.outputDir = folder_ + "/bracket";
    request.exposures = {2.0f, 1.0f, 0.5f};  // slot 0 the brightest, slot 2 the darkest
    if (!fs::exists(request.outputDir + "/Up_5_2.jpg")) {
      std::cerr << "Simulating eighteen shots into " << request.outputDir << std::endl;
      velmora::sim::simulateCamera(scene, request);
    }
    for (int p = 0; p < 6; ++p) {
      for (int e = 0; e < 3; ++e) {
        bracket_.push_back(request.outputDir + "/Up_" + std::to_string(p) + "_" +
                           std::to_string(e) + ".jpg");
      }
    }

    handle_ = ZEMU_CreateOptFlowStitchHandle();
    ZEMU_InitOptFlowStitchHandle(handle_, config_.c_str(), folder_.c_str(), kShotWidth, kShotHeight,
                                 kGridWidth, kGridHeight);
  }

  std::string folder_;
  std::string config_;
  std::vector<std::string> single_;
  std::vector<std::string> bracket_;
  void* handle_ = nullptr;
};

std::vector<const char*> pointers(const std::vector<std::string>& paths) {
  std::vector<const char*> result;
  for (const auto& path : paths) result.push_back(path.c_str());
  return result;
}

void BM_SingleStitch(benchmark::State& state) {
  Inputs& inputs = Inputs::get();
  auto shots = pointers(inputs.single());
  const std::string output = inputs.output("single.jpg");
  velmora::bench::measureWithPeakMemory(state, [&] {
    ZEMU_ExecuteOptFlowStitchHandle(inputs.handle(), inputs.config().c_str(), shots.data(),
                                    output.c_str(), 1.0f, 1.0f, 1.0f);
  });
  if (ZEMU_GetOptFlowStitchCode(inputs.handle()) != 0) state.SkipWithError("stitch failed");
}
BENCHMARK(BM_SingleStitch)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

void BM_HdrStitch(benchmark::State& state) {
  Inputs& inputs = Inputs::get();
  auto shots = pointers(inputs.bracket());
  const std::string output = inputs.output("hdr.jpg");
  velmora::bench::measureWithPeakMemory(state, [&] {
    ZEMU_ExecuteOptFlowStitchHDRHandle(inputs.handle(), shots.data(), output.c_str(), 0, 1.0f, 1.0f,
                                       1.0f, 3);
  });
  if (ZEMU_GetOptFlowStitchCode(inputs.handle()) != 0) state.SkipWithError("HDR stitch failed");
  std::remove((output + ".jpg").c_str());
}
BENCHMARK(BM_HdrStitch)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
