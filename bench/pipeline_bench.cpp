// The pipeline at the sizes users shoot, on simulated rig shots: every step on its own, then the
// two whole operations through the public interface. Each reports its wall time and the growth of
// peak resident memory during it (peak_MB); where another tool does the same step, that tool runs
// on the same inputs in the same iteration and the counters give its time, its peak and the ratio
// (ours over theirs, below 1 when we are faster):
//   TableBuild    the Up camera's projection table onto the 8192 x 4096 grid, on every core
//   Projection    six 5472 x 3648 shots through the table; peer: cv::remap (INTER_LINEAR,
//                 constant border) of the same shots with the same table as its map (remap_*)
//   FlowFields    the twelve flow fields of the projected ring (six overlap jobs started at once)
//   RingStitch    the stitch driver on the projected ring: brightness, flows, bands, assembly
//   Fusion        one bracket of three 5472 x 3648 exposures, from the JPEG files to the fused
//                 image; peers: cv::MergeMertens on the same files to an 8-bit image (mertens_*)
//                 and, when it is on the PATH, the enfuse program writing a TIFF (enfuse_*)
//   SingleStitch  six JPEG shots to the 8192 x 4096 JPEG (ZEMU_ExecuteOptFlowStitchHandle)
//   HdrStitch     eighteen JPEG shots, no video, to the pending panorama
//                 (ZEMU_ExecuteOptFlowStitchHDRHandle)
// The two whole operations are measured against a reference that runs right after them in the
// same iteration, so that their cost reads the same on any machine and under any load: the six
// plain cv::remap calls of the projection's peer (remap_ms, remap_ratio = operation / remaps).
//
//   ./pipeline_bench                                    everything (a few minutes)
//   ./pipeline_bench --benchmark_filter=Fusion          one step
//   VELMORA_BENCH_DATA=/path ./pipeline_bench           where the simulated inputs are kept
// The inputs are simulated from the built-in scene on the first run (a minute or two) and kept in
// VELMORA_BENCH_DATA (default: /tmp/velmora-bench-data), with the Up camera's table that the
// handle's Init caches there; later runs measure what a host's repeated calls cost.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>

#include "bench_memory.h"
#include "common/image_io.h"
#include "common/worker_threads.h"
#include "flow/overlap_flow.h"
#include "flow/ring_brightness.h"
#include "flow/stitch_driver.h"
#include "fusion/exposure_fusion.h"
#include "rig/camera_model.h"
#include "rig/projection.h"
#include "rig/table_cache.h"
#include "sim/builtin_scene.h"
#include "sim/rig_simulation.h"
#include "velmora.h"

namespace {

using velmora::bench::measureStep;
using velmora::bench::measureWithPeakMemory;
using velmora::bench::StepCost;

constexpr int kShotWidth = 5472;
constexpr int kShotHeight = 3648;
constexpr int kGridWidth = 8192;
constexpr int kGridHeight = 4096;
constexpr int kRing = 6;

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
  // The Up camera's geometry as Init records it from these sizes: its shots are turned a
  // quarter, so the stored height comes first.
  velmora::CameraGeometry geometry() const {
    return velmora::CameraGeometry{kShotHeight, kShotWidth, kGridWidth, kGridHeight,
                                   velmora::kUpLens};
  }

 private:
  Inputs() : folder_(dataFolder()) {
    namespace fs = std::filesystem;
    cv::Mat scene;
    const auto simulate = [&](velmora::sim::SimulationRequest& request) {
      if (scene.empty()) scene = velmora::sim::makeBuiltinScene(kGridWidth, kGridHeight);
      std::cerr << "Simulating shots into " << request.outputDir << std::endl;
      velmora::sim::simulateCamera(scene, request);
    };
    velmora::sim::SimulationRequest request;
    request.camera = velmora::sim::RigCamera::Up;
    request.shotSize = velmora::sim::ShotSize{kShotWidth, kShotHeight};
    request.gridWidth = kGridWidth;
    request.gridHeight = kGridHeight;
    request.writeGroundTruth = false;

    request.outputDir = folder_ + "/single";
    if (!fs::exists(request.outputDir + "/Up_5.jpg")) simulate(request);
    config_ = request.outputDir + "/Up.txt";
    for (int p = 0; p < kRing; ++p) {
      single_.push_back(request.outputDir + "/Up_" + std::to_string(p) + ".jpg");
    }

    request.outputDir = folder_ + "/bracket";
    request.exposures = {2.0f, 1.0f, 0.5f};  // slot 0 the brightest, slot 2 the darkest
    if (!fs::exists(request.outputDir + "/Up_5_2.jpg")) simulate(request);
    for (int p = 0; p < kRing; ++p) {
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

velmora::CameraModel upModel() {
  velmora::CameraModel model(Inputs::get().geometry());
  model.readConfiguration(Inputs::get().config());
  return model;
}

// The six shots as the projection takes them: read and turned a quarter (the Up camera).
const std::vector<cv::Mat>& turnedShots() {
  static const std::vector<cv::Mat> shots = [] {
    std::vector<cv::Mat> turned;
    for (const std::string& path : Inputs::get().single()) {
      cv::Mat shot = velmora::readColorImage(path);
      cv::rotate(shot, shot, cv::ROTATE_90_COUNTERCLOCKWISE);
      turned.push_back(shot);
    }
    return turned;
  }();
  return shots;
}

const velmora::CameraModel& modelWithTable() {
  static const velmora::CameraModel model = [] {
    // The table the handle's Init cached in the data folder (computed when it is missing).
    velmora::CameraModel withTable = upModel();
    velmora::ensureTable(withTable, Inputs::get().output("table_Up.bin"));
    return withTable;
  }();
  return model;
}

// The projected ring, as the driver receives it.
const std::vector<cv::Mat>& projectedRing() {
  static const std::vector<cv::Mat> ring =
      velmora::projectShots(turnedShots(), modelWithTable().table(), Inputs::get().geometry());
  return ring;
}

std::vector<cv::Mat> copyOf(const std::vector<cv::Mat>& images) {
  std::vector<cv::Mat> copies;
  for (const cv::Mat& image : images) copies.push_back(image.clone());
  return copies;
}

void setPeerCounters(benchmark::State& state, const char* peer, const StepCost& ours,
                     const StepCost& theirs) {
  const std::string name(peer);
  state.counters[name + "_ms"] = 1000.0 * theirs.seconds;
  state.counters[name + "_peak_MB"] = theirs.peakMegabytes;
  state.counters[name + "_ratio"] = ours.seconds / theirs.seconds;
}

void BM_TableBuild(benchmark::State& state) {
  velmora::CameraModel model = upModel();
  measureWithPeakMemory(state, [&] {
    model.computeTable();
    benchmark::DoNotOptimize(model.table().data);
  });
}
BENCHMARK(BM_TableBuild)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

// The reference: the six turned shots through the Up table with plain cv::remap (bilinear,
// constant border), one after the other.
StepCost remapSixShots() {
  const std::vector<cv::Mat>& shots = turnedShots();
  const cv::Mat& table = modelWithTable().table();
  return measureStep([&] {
    for (const cv::Mat& shot : shots) {
      cv::Mat remapped;
      cv::remap(shot, remapped, table, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
      benchmark::DoNotOptimize(remapped.data);
    }
  });
}

// Times `operation` and then the six remaps in every iteration: the operation's time is the
// iteration's, its peak memory goes to peak_MB and the remaps' figures to remap_*.
template <typename Operation>
void measureAgainstRemaps(benchmark::State& state, Operation operation) {
  // The reference's shots and table are loaded before anything is timed.
  turnedShots();
  modelWithTable();
  StepCost ours, remap;
  for (auto _ : state) {
    const StepCost cost = measureStep(operation);
    const StepCost peer = remapSixShots();
    state.SetIterationTime(cost.seconds);
    ours.seconds += cost.seconds;
    ours.cpuSeconds += cost.cpuSeconds;
    remap.seconds += peer.seconds;
    ours.peakMegabytes = std::max(ours.peakMegabytes, cost.peakMegabytes);
    remap.peakMegabytes = std::max(remap.peakMegabytes, peer.peakMegabytes);
  }
  ours.seconds /= static_cast<double>(state.iterations());
  remap.seconds /= static_cast<double>(state.iterations());
  state.counters["peak_MB"] = ours.peakMegabytes;
  state.counters["cpu_s"] = ours.cpuSeconds / static_cast<double>(state.iterations());
  setPeerCounters(state, "remap", ours, remap);
}

void BM_Projection(benchmark::State& state) {
  const std::vector<cv::Mat>& shots = turnedShots();
  const cv::Mat& table = modelWithTable().table();
  measureAgainstRemaps(state, [&] {
    auto projected = velmora::projectShots(shots, table, Inputs::get().geometry());
    benchmark::DoNotOptimize(projected.data());
  });
}
BENCHMARK(BM_Projection)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

void BM_FlowFields(benchmark::State& state) {
  std::vector<cv::Mat> ring = copyOf(projectedRing());
  velmora::equaliseRingBrightness(ring, kRing, kGridWidth, kGridHeight);
  std::array<velmora::SeamOverlap, kRing> overlaps;
  measureWithPeakMemory(state, [&] {
    velmora::WorkerThreads jobs;
    for (int i = 0; i < kRing; ++i) {
      jobs.start([&ring, &overlaps, i] {
        velmora::runOverlapFlowJob(ring[i], ring[(i + 1) % kRing], overlaps[i], false);
      });
    }
    jobs.join();
    benchmark::DoNotOptimize(overlaps[0].flowFirstToSecond.data);
  });
}
BENCHMARK(BM_FlowFields)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

void BM_RingStitch(benchmark::State& state) {
  std::vector<cv::Mat> ring = copyOf(projectedRing());  // the driver changes its images
  measureWithPeakMemory(state, [&] {
    cv::Mat panorama;
    velmora::stitchRing(panorama, ring, 60.0f, kRing, kGridWidth, kGridHeight);
    benchmark::DoNotOptimize(panorama.data);
  });
}
BENCHMARK(BM_RingStitch)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

void BM_Fusion(benchmark::State& state) {
  const std::vector<std::string>& bracket = Inputs::get().bracket();
  const std::string enfused = Inputs::get().output("enfused.tif");
  const bool enfuseFound = velmora::bench::onPath("enfuse");
  cv::Ptr<cv::MergeMertens> merge = cv::createMergeMertens();
  StepCost ours, mertens, enfuse;
  bool enfuseRan = enfuseFound;
  for (auto _ : state) {
    const StepCost cost = measureStep([&] {
      cv::Mat fused;
      velmora::fuseExposures(bracket[0], bracket[1], bracket[2], fused, 1.0f, 1.0f, 1.0f);
      benchmark::DoNotOptimize(fused.data);
    });
    const StepCost peer = measureStep([&] {
      std::vector<cv::Mat> images;
      for (int k = 0; k < 3; ++k) images.push_back(cv::imread(bracket[k], cv::IMREAD_COLOR));
      cv::Mat fused, fused8;
      merge->process(images, fused);
      fused.convertTo(fused8, CV_8U, 255.0);
      benchmark::DoNotOptimize(fused8.data);
    });
    if (enfuseRan) {
      const auto run =
          velmora::bench::runProgram({"enfuse", "-o", enfused, bracket[0], bracket[1], bracket[2]});
      if (run) {
        enfuse.seconds += run->seconds;
        enfuse.peakMegabytes = std::max(enfuse.peakMegabytes, run->peakMegabytes);
      }
      enfuseRan = run.has_value();
    }
    state.SetIterationTime(cost.seconds);
    ours.seconds += cost.seconds;
    mertens.seconds += peer.seconds;
    ours.peakMegabytes = std::max(ours.peakMegabytes, cost.peakMegabytes);
    mertens.peakMegabytes = std::max(mertens.peakMegabytes, peer.peakMegabytes);
  }
  std::remove(enfused.c_str());
  const auto iterations = static_cast<double>(state.iterations());
  ours.seconds /= iterations;
  mertens.seconds /= iterations;
  enfuse.seconds /= iterations;
  state.counters["peak_MB"] = ours.peakMegabytes;
  setPeerCounters(state, "mertens", ours, mertens);
  if (enfuseRan) {
    setPeerCounters(state, "enfuse", ours, enfuse);
  } else {
    state.SetLabel(enfuseFound ? "enfuse failed" : "enfuse not on the PATH");
  }
}
BENCHMARK(BM_Fusion)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

std::vector<const char*> pointers(const std::vector<std::string>& paths) {
  std::vector<const char*> result;
  for (const auto& path : paths) result.push_back(path.c_str());
  return result;
}

void BM_SingleStitch(benchmark::State& state) {
  Inputs& inputs = Inputs::get();
  auto shots = pointers(inputs.single());
  const std::string output = inputs.output("single.jpg");
  measureAgainstRemaps(state, [&] {
    ZEMU_ExecuteOptFlowStitchHandle(inputs.handle(), inputs.config().c_str(), shots.data(),
                                    output.c_str(), 1.0f, 1.0f, 1.0f);
  });
  if (ZEMU_GetOptFlowStitchCode(inputs.handle()) != 0) state.SkipWithError("stitch failed");
}
BENCHMARK(BM_SingleStitch)->Unit(benchmark::kSecond)->UseManualTime()->Iterations(1);

void BM_HdrStitch(benchmark::State& state) {
  Inputs& inputs = Inputs::get();
  auto shots = pointers(inputs.bracket());
  const std::string output = inputs.output("hdr.jpg");
  measureAgainstRemaps(state, [&] {
    ZEMU_ExecuteOptFlowStitchHDRHandle(inputs.handle(), shots.data(), output.c_str(), 0, 1.0f, 1.0f,
                                       1.0f, 3);
  });
  if (ZEMU_GetOptFlowStitchCode(inputs.handle()) != 0) state.SkipWithError("HDR stitch failed");
  std::remove((output + ".jpg").c_str());
}
BENCHMARK(BM_HdrStitch)->Unit(benchmark::kSecond)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
