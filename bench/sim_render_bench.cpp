// The rig simulator at the real sizes: the built-in scene on an 8192x4096 grid and one full-size
// 5472x3648 shot of each camera rendered from it.
#include <benchmark/benchmark.h>

#include "sim/builtin_scene.h"
#include "sim/rig_camera.h"
#include "sim/shot_exposure.h"
#include "sim/shot_renderer.h"

namespace {

using namespace velmora::sim;

const cv::Mat& realScene() {
  static const cv::Mat scene = makeBuiltinScene(8192, 4096);
  return scene;
}

void BM_BuiltinScene(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(makeBuiltinScene(8192, 4096).data);
}
BENCHMARK(BM_BuiltinScene)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_RenderRealShot(benchmark::State& state) {
  const RigCamera rigCamera = state.range(0) == 0 ? RigCamera::Up : RigCamera::Down;
  const SimulatedCamera camera(defaultCalibration(rigCamera, kRealShotSize),
                               rigGeometry(rigCamera, kRealShotSize, 8192, 4096));
  const EquirectScene scene(realScene());
  for (auto _ : state) {
    const cv::Mat light = renderShotLight(scene, camera, 1, Parallax{0.05, 4.0});
    benchmark::DoNotOptimize(developShot(light, Exposure{1.0f, 2.0f, 1}).data);
  }
}
BENCHMARK(BM_RenderRealShot)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace

BENCHMARK_MAIN();
