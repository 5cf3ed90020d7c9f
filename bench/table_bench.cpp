// Projection table build and shot projection at the grid sizes users stitch to, the projection
// beside cv::remap of the same shots with the same table. Times are wall-clock; the table
// build's CPU column is the whole process's, over all its threads. Also the Up shots' quarter
// turn beside cv::rotate.
//   ./table_bench                      (all)
//   ./table_bench --benchmark_filter=Table
#include <benchmark/benchmark.h>

#include <chrono>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_memory.h"
#include "common/quarter_turn.h"
#include "rig/camera_model.h"
#include "rig/projection.h"

namespace {

// The Up camera of a 5472 x 3648 shooter, turned a quarter: 3648 columns by 5472 rows.
velmora::CameraModel upCamera(int outWidth, int outHeight) {
  velmora::CameraModel model(velmora::CameraGeometry{3648, 5472, static_cast<uint32_t>(outWidth),
                                                     static_cast<uint32_t>(outHeight),
                                                     velmora::kUpLens});
  model.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << 1750.0, 0, 1824.0, 0, 1750.0, 2736.0, 0, 0, 0);
  model.calibration().rotX = 0.35f;
  return model;
}

void BM_TableBuild(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  velmora::CameraModel model = upCamera(width, width / 2);
  const auto threads = static_cast<unsigned>(state.range(1));
  for (auto _ : state) {
    model.computeTable(threads);
    benchmark::DoNotOptimize(model.table().data);
  }
  state.counters["cells"] = static_cast<double>(width) * (width / 2);
}
BENCHMARK(BM_TableBuild)
    ->ArgNames({"width", "threads"})
    ->Args({4096, 1})
    ->Args({4096, 2})
    ->Args({8192, 1})
    ->Args({8192, 2})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Iterations(2);

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The six shots projected through the table, timed beside cv::remap (INTER_LINEAR, constant
// border) of the same six shots with the same table as its map: the peer a user would reach for.
// The benchmark's time is the projection's; remap_ms and ratio (projection / remap) come from the
// same iterations.
void BM_ProjectSixShots(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  velmora::CameraModel model = upCamera(width, width / 2);
  model.computeTable();
  std::vector<cv::Mat> shots(6);
  for (auto& shot : shots) {
    shot.create(5472, 3648, CV_8UC3);
    cv::randu(shot, 0, 255);
  }
  double projection = 0.0;
  double remap = 0.0;
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    auto projected = velmora::projectShots(shots, model.table(), model.geometry());
    const double seconds = secondsSince(start);
    benchmark::DoNotOptimize(projected.data());
    projected.clear();
    start = std::chrono::steady_clock::now();
    for (const cv::Mat& shot : shots) {
      cv::Mat remapped;
      cv::remap(shot, remapped, model.table(), cv::noArray(), cv::INTER_LINEAR,
                cv::BORDER_CONSTANT);
      benchmark::DoNotOptimize(remapped.data);
    }
    remap += secondsSince(start);
    projection += seconds;
    state.SetIterationTime(seconds);
  }
  state.counters["remap_ms"] = 1000.0 * remap / static_cast<double>(state.iterations());
  state.counters["ratio"] = projection / remap;
}
BENCHMARK(BM_ProjectSixShots)
    ->ArgNames({"width"})
    ->Arg(8192)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

// The Up shots' quarter turn before the projection: ours (tiles, into a reused buffer as the
// projection's pool gives it) beside cv::rotate into a fresh image, on one 5472 x 3648 shot.
void BM_QuarterTurn(benchmark::State& state) {
  cv::Mat shot(3648, 5472, CV_8UC3);
  cv::randu(shot, 0, 256);
  cv::Mat ours;
  double ourSeconds = 0.0, theirSeconds = 0.0, ourCpu = 0.0, theirCpu = 0.0;
  for (auto _ : state) {
    const double cpuStart = velmora::bench::processSeconds();
    const auto start = std::chrono::steady_clock::now();
    velmora::turnQuarterCounterClockwise(shot, ours);
    const auto middle = std::chrono::steady_clock::now();
    const double cpuMiddle = velmora::bench::processSeconds();
    cv::Mat theirs;
    cv::rotate(shot, theirs, cv::ROTATE_90_COUNTERCLOCKWISE);
    const auto end = std::chrono::steady_clock::now();
    ourCpu += cpuMiddle - cpuStart;
    theirCpu += velmora::bench::processSeconds() - cpuMiddle;
    benchmark::DoNotOptimize(theirs.data);
    ourSeconds += std::chrono::duration<double>(middle - start).count();
    theirSeconds += std::chrono::duration<double>(end - middle).count();
    state.SetIterationTime(std::chrono::duration<double>(middle - start).count());
  }
  state.counters["cv_rotate_ms"] = 1000.0 * theirSeconds / static_cast<double>(state.iterations());
  state.counters["cv_rotate_ratio"] = ourSeconds / theirSeconds;
  // OpenCV spreads its work over every core; in the stitch, where the cores are busy, the
  // processor time is what counts.
  state.counters["cpu_ratio"] = ourCpu / theirCpu;
}
BENCHMARK(BM_QuarterTurn)->Unit(benchmark::kMillisecond)->Iterations(5)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
