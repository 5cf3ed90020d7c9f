// Exposure fusion and tone matching at the sizes the HDR stitch works at.
//   ./fusion_bench                                  everything
//   ./fusion_bench --benchmark_filter=FuseOne       one 5472 x 3648 fusion and its peak memory
//   ./fusion_bench --benchmark_filter=FuseSix       six positions' fusions as the HDR stitch runs
//   them
//   ./fusion_bench --benchmark_filter=Mertens       the reference fusion on the same shots
//   ./fusion_bench --benchmark_filter=ToneMatch     tone matching of a 4000 x 3000 pair
// The shots are rendered from a textured scene at exposure factors 0.5, 1 and 2 and written as
// JPEG files into a temporary folder. "peak_MB" is the growth of the process's peak resident
// memory over the resident memory before the timed call (Linux: VmHWM is reset through
// /proc/self/clear_refs before each iteration).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/photo.hpp>
#include <sstream>
#include <string>

#include "bench_memory.h"
#include "fusion/bracket_front.h"
#include "fusion/exposure_fusion.h"
#include "fusion/tone_match.h"

namespace {

constexpr int kShotWidth = 5472;
constexpr int kShotHeight = 3648;
constexpr double kExposureFactors[] = {0.5, 1.0, 2.0};

// Scene radiance in about 0..1.4 per channel: a vertical gradient under a grid of coloured
// patches (some of them bright windows), a fine sinusoidal texture and a little noise.
cv::Mat renderExposure(cv::Size size, double factor) {
  cv::RNG rng(20261122);
  constexpr int kCell = 96;
  const int cellsX = size.width / kCell + 1;
  const int cellsY = size.height / kCell + 1;
  std::vector<cv::Vec3f> tints(static_cast<size_t>(cellsX) * cellsY);
  for (cv::Vec3f& tint : tints) {
    const bool window = rng.uniform(0.0, 1.0) < 0.08;
    for (int c = 0; c < 3; ++c) {
      tint[c] = window ? static_cast<float>(rng.uniform(1.1, 1.4))
                       : static_cast<float>(rng.uniform(0.3, 1.0));
    }
  }
  cv::Mat image(size, CV_8UC3);
  for (int y = 0; y < size.height; ++y) {
    uchar* row = image.ptr<uchar>(y);
    const float base = 0.15f + 0.55f * y / size.height;
    const float wave = std::sin(y * 0.07f);
    for (int x = 0; x < size.width; ++x) {
      const cv::Vec3f& tint = tints[(y / kCell) * cellsX + x / kCell];
      const float texture = 0.12f * std::sin(x * 0.05f) * wave;
      const float noise = ((x * 7919 + y * 104729) % 97) / 97.0f * 0.03f;
      for (int c = 0; c < 3; ++c) {
        const float radiance = base * tint[c] + texture + noise;
        row[3 * x + c] = cv::saturate_cast<uchar>(radiance * 255.0 * factor);
      }
    }
  }
  return image;
}

// Three exposures of the scene written once per process as JPEG files.
class ShotFiles {
 public:
  static const ShotFiles& get() {
    static const ShotFiles files;
    return files;
  }
  const std::string& path(int k) const { return paths_[k]; }

  ~ShotFiles() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

 private:
  ShotFiles() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "velmora-fusion-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    folder_ = pattern;
    for (int k = 0; k < 3; ++k) {
      paths_[k] = (folder_ / ("shot" + std::to_string(k) + ".jpg")).string();
      cv::imwrite(paths_[k], renderExposure({kShotWidth, kShotHeight}, kExposureFactors[k]),
                  {cv::IMWRITE_JPEG_QUALITY, 95});
    }
  }

  std::filesystem::path folder_;
  std::string paths_[3];
};

using velmora::bench::measureWithPeakMemory;

void BM_FuseOne(benchmark::State& state) {
  const ShotFiles& shots = ShotFiles::get();
  measureWithPeakMemory(state, [&] {
    cv::Mat fused;
    velmora::fuseExposures(shots.path(0), shots.path(1), shots.path(2), fused, 1.0f, 1.0f, 1.0f);
    benchmark::DoNotOptimize(fused.data);
  });
}
BENCHMARK(BM_FuseOne)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

// The six head positions as the HDR stitch fuses them: one per core at a time, each taking the
// buffers of the one before from the pool.
void BM_FuseSixPositions(benchmark::State& state) {
  const ShotFiles& shots = ShotFiles::get();
  std::vector<std::string> slots;
  for (int p = 0; p < 6; ++p) {
    for (int e = 0; e < 3; ++e) slots.push_back(shots.path(e));
  }
  const velmora::WhiteBalanceGains gains{1.0f, 1.0f, 1.0f};
  measureWithPeakMemory(state, [&] {
    std::vector<cv::Mat> fused = velmora::fuseBrackets(slots, 3, gains);
    benchmark::DoNotOptimize(fused.data());
  });
}
BENCHMARK(BM_FuseSixPositions)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// OpenCV's exposure fusion on the same files, from reading to the 8-bit result.
void BM_MergeMertens(benchmark::State& state) {
  const ShotFiles& shots = ShotFiles::get();
  cv::Ptr<cv::MergeMertens> merge = cv::createMergeMertens();
  measureWithPeakMemory(state, [&] {
    std::vector<cv::Mat> images;
    for (int k = 0; k < 3; ++k) images.push_back(cv::imread(shots.path(k), cv::IMREAD_COLOR));
    cv::Mat fused;
    merge->process(images, fused);
    cv::Mat fused8;
    fused.convertTo(fused8, CV_8U, 255.0);
    benchmark::DoNotOptimize(fused8.data);
  });
}
BENCHMARK(BM_MergeMertens)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

// A 4000 x 3000 still and a video frame that is brighter and has a moved object, so that all
// three checks pass and the curve is fitted and applied.
void BM_ToneMatch(benchmark::State& state) {
  const cv::Size size(4000, 3000);
  const cv::Mat still = renderExposure(size, 0.8);
  cv::Mat frame = renderExposure(size, 1.0);
  frame(cv::Rect(500, 400, 600, 500)).setTo(cv::Scalar(20, 200, 40));
  const cv::Mat panorama = renderExposure(size, 0.8);
  std::ostringstream transcript;
  bool applied = false;
  measureWithPeakMemory(state, [&] {
    cv::Mat target = panorama.clone();
    std::streambuf* old = std::cout.rdbuf(transcript.rdbuf());
    velmora::matchToneToReference(still, frame, target);
    std::cout.rdbuf(old);
    applied = cv::norm(target, panorama, cv::NORM_INF) > 0;
    benchmark::DoNotOptimize(target.data);
  });
  // Shows that the measured run went through all three checks to the curve.
  state.counters["curve_applied"] = applied;
  std::istringstream lines(transcript.str());
  std::string first, second;
  std::getline(lines, first);
  std::getline(lines, second);
  state.SetLabel(first + "; " + second);
}
BENCHMARK(BM_ToneMatch)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
