// Timings of the flow engine at the rig's sizes: one flow job and one overlap flow job on the
// overlap of two neighbouring 8192 x 4096 projected images, the twelve flow fields of a ring of
// six (the driver's flow stage) and the whole ring stitch of six; the seam warp's resampling
// beside cv::remap and the flow median beside cv::medianBlur.
//   ./flow_bench
//
// The images are views of one panorama texture: the photograph named by VELMORA_BENCH_IMAGE, else
// the first equirectangular photograph found in the shared test data, else a procedural texture
// (multi-scale noise, edges and shapes). Each view looks 60 degrees further round, is valid over
// its middle 120 degrees only and is displaced by a pixel or two, as projected shots are.
// Times are wall-clock; the CPU column is the whole process's, over all its threads.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "bench_memory.h"
#include "common/worker_threads.h"
#include "flow/cubic_remap.h"
#include "flow/median_blur.h"
#include "flow/optical_flow.h"
#include "flow/overlap_flow.h"
#include "flow/stitch_driver.h"

namespace {

constexpr int kFrameWidth = 8192;
constexpr int kFrameHeight = 4096;

cv::Mat proceduralPanorama() {
  cv::RNG rng(2026);
  cv::Mat sum = cv::Mat::zeros(kFrameHeight / 4, kFrameWidth / 4, CV_32FC3);
  for (double sigma : {1.0, 4.0, 16.0, 48.0}) {
    cv::Mat noise(sum.size(), CV_32FC3);
    rng.fill(noise, cv::RNG::UNIFORM, 0.0, 1.0);
    cv::GaussianBlur(noise, noise, cv::Size(), sigma);
    cv::normalize(noise, noise, -1.0, 1.0, cv::NORM_MINMAX);
    sum += noise;
  }
  cv::Mat small;
  sum.convertTo(small, CV_8UC3, 255.0 / 8.0, 127.5);
  cv::Mat panorama;
  cv::resize(small, panorama, cv::Size(kFrameWidth, kFrameHeight), 0, 0, cv::INTER_CUBIC);
  for (int i = 0; i < 400; ++i) {
    const cv::Point a(rng.uniform(0, kFrameWidth), rng.uniform(0, kFrameHeight));
    const cv::Scalar colour(rng.uniform(0, 256), rng.uniform(0, 256), rng.uniform(0, 256));
    switch (i % 3) {
      case 0:
        cv::circle(panorama, a, rng.uniform(10, 200), colour, cv::FILLED);
        break;
      case 1:
        cv::rectangle(panorama, cv::Rect(a.x, a.y, rng.uniform(20, 400), rng.uniform(20, 400)),
                      colour, cv::FILLED);
        break;
      default:
        cv::line(panorama, a, a + cv::Point(rng.uniform(-600, 600), rng.uniform(-600, 600)), colour,
                 rng.uniform(1, 8));
    }
  }
  cv::Mat grain(panorama.size(), CV_8UC3);
  rng.fill(grain, cv::RNG::UNIFORM, 0, 24);
  panorama += grain;
  return panorama;
}

std::string photographPath() {
  if (const char* path = std::getenv("VELMORA_BENCH_IMAGE")) return path;
  const std::filesystem::path data =
      std::filesystem::path(__FILE__).parent_path() / "../../shared/data/real";
  for (const char* name :
       {"peppermint_powerplant_2_4k.jpg", "examplepano.jpg", "artist_workshop_4k.jpg"}) {
    if (std::filesystem::exists(data / name)) return (data / name).string();
  }
  return "";
}

cv::Mat panoramaTexture() {
  const std::string path = photographPath();
  cv::Mat photo = path.empty() ? cv::Mat() : cv::imread(path, cv::IMREAD_COLOR);
  if (photo.empty()) {
    std::cerr << "texture: procedural\n";
    return proceduralPanorama();
  }
  std::cerr << "texture: " << path << "\n";
  cv::Mat panorama;
  cv::resize(photo, panorama, cv::Size(kFrameWidth, kFrameHeight), 0, 0, cv::INTER_CUBIC);
  return panorama;
}

// View i of the panorama: longitude i x 60 degrees at its centre column, its content displaced
// by (1, 0) pixels for even i and (-2, 1) for odd i, valid over columns W/3 - 64 to 2W/3 + 64.
cv::Mat ringView(const cv::Mat& panorama, int i) {
  const int first = kFrameWidth / 3 - 64;
  const int last = 2 * kFrameWidth / 3 + 64;
  cv::Mat mapX(kFrameHeight, last - first, CV_32F);
  cv::Mat mapY(kFrameHeight, last - first, CV_32F);
  const float dx = i % 2 == 0 ? 1.0f : -2.0f;
  const float dy = i % 2 == 0 ? 0.0f : 1.0f;
  for (int y = 0; y < kFrameHeight; ++y) {
    float* mx = mapX.ptr<float>(y);
    float* my = mapY.ptr<float>(y);
    for (int c = first; c < last; ++c) {
      const int longitude = c - kFrameWidth / 2 + i * kFrameWidth / 6;
      mx[c - first] = static_cast<float>((longitude + kFrameWidth) % kFrameWidth) - dx;
      my[c - first] = static_cast<float>(y) - dy;
    }
  }
  cv::Mat visible;
  cv::remap(panorama, visible, mapX, mapY, cv::INTER_CUBIC, cv::BORDER_REFLECT);
  cv::Mat view = cv::Mat::zeros(kFrameHeight, kFrameWidth, CV_8UC4);
  cv::cvtColor(visible, view.colRange(first, last), cv::COLOR_BGR2BGRA);
  return view;
}

const std::vector<cv::Mat>& ring() {
  static const std::vector<cv::Mat> views = [] {
    const cv::Mat panorama = panoramaTexture();
    std::vector<cv::Mat> all;
    for (int i = 0; i < 6; ++i) all.push_back(ringView(panorama, i));
    return all;
  }();
  return views;
}

// The mean flow over the middle third of the cut-outs, where both are valid. From view 0 to view
// 1 the content moves by (-2, 1): -3 columns of displacement, +1 from the rounding of the
// cut-out positions, and 1 row.
void reportMeanFlow(benchmark::State& state, const cv::Mat& flow) {
  const cv::Scalar mean =
      cv::mean(flow(cv::Rect(flow.cols / 3 + 16, 16, flow.cols / 3 - 32, flow.rows - 32)));
  state.counters["flow_dx"] = mean[0];
  state.counters["flow_dy"] = mean[1];
}

void BM_FlowJob(benchmark::State& state) {
  velmora::SeamOverlap overlap;
  velmora::cutOutOverlap(ring()[0], ring()[1], overlap);
  cv::Mat flow;
  for (auto _ : state) {
    velmora::computeOpticalFlow(overlap.firstCut, overlap.secondCut, flow, velmora::kHintLeftward,
                                true);
    benchmark::DoNotOptimize(flow.data);
  }
  state.SetLabel(std::to_string(overlap.firstCut.cols) + "x" +
                 std::to_string(overlap.firstCut.rows) + " BGRA cut-outs");
  reportMeanFlow(state, flow);
}

void BM_OverlapFlowJob(benchmark::State& state) {
  velmora::SeamOverlap overlap;
  for (auto _ : state) {
    velmora::runOverlapFlowJob(ring()[0], ring()[1], overlap, false);
    benchmark::DoNotOptimize(overlap.flowSecondToFirst.data);
  }
  reportMeanFlow(state, overlap.flowFirstToSecond);
}

// The driver's flow stage at 8192 x 4096: six overlap flow jobs on threads of their own (taking
// turns, one per two cores), each running its two flow jobs on two more, so twelve flow fields.
void BM_TwelveFlowFields(benchmark::State& state) {
  std::vector<cv::Mat> images;
  for (const cv::Mat& view : ring()) images.push_back(view.clone());
  std::array<velmora::SeamOverlap, 6> overlaps;
  for (auto _ : state) {
    velmora::WorkerThreads jobs;
    for (int i = 0; i < 6; ++i) {
      jobs.start([&images, &overlaps, i] {
        velmora::runOverlapFlowJob(images[i], images[(i + 1) % 6], overlaps[i], false);
      });
    }
    jobs.join();
    benchmark::DoNotOptimize(overlaps[0].flowFirstToSecond.data);
  }
  reportMeanFlow(state, overlaps[0].flowFirstToSecond);
}

void BM_StitchRing(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<cv::Mat> images;
    for (const cv::Mat& view : ring()) images.push_back(view.clone());
    state.ResumeTiming();
    cv::Mat panorama;
    velmora::stitchRing(panorama, images, 60.0f, 6, kFrameWidth, kFrameHeight);
    benchmark::DoNotOptimize(panorama.data);
  }
}

// Runs `ours` and then `peer` (on the same inputs, each writing its own output) in every
// iteration; the iteration time is ours, the counters give the peer's time and both ratios.
// OpenCV spreads some of its work over every core; in the stitch, where the cores are busy, the
// processor time is what counts.
template <class Ours, class Peer>
void timeBesidePeer(benchmark::State& state, const std::string& peerName, Ours ours, Peer peer) {
  double ourSeconds = 0.0, peerSeconds = 0.0, ourCpu = 0.0, peerCpu = 0.0;
  for (auto _ : state) {
    const double cpuStart = velmora::bench::processSeconds();
    const auto start = std::chrono::steady_clock::now();
    ours();
    const auto middle = std::chrono::steady_clock::now();
    const double cpuMiddle = velmora::bench::processSeconds();
    peer();
    const auto end = std::chrono::steady_clock::now();
    ourCpu += cpuMiddle - cpuStart;
    peerCpu += velmora::bench::processSeconds() - cpuMiddle;
    ourSeconds += std::chrono::duration<double>(middle - start).count();
    peerSeconds += std::chrono::duration<double>(end - middle).count();
    state.SetIterationTime(std::chrono::duration<double>(middle - start).count());
  }
  state.counters[peerName + "_ms"] = 1000.0 * peerSeconds / static_cast<double>(state.iterations());
  state.counters[peerName + "_ratio"] = ourSeconds / peerSeconds;
  state.counters["cpu_ratio"] = ourCpu / peerCpu;
}

// Both outputs are whole, continuous images of the bench's own making.
bool sameBytes(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() &&
         std::equal(a.datastart, a.dataend, b.datastart);
}

// The seam warp's bicubic resampling of one 1365 x 4096 BGRA cut-out through a displaced-position
// map, ours beside cv::remap (INTER_CUBIC, zero border) on the same inputs in the same iteration;
// both give the same bytes (checked here too).
void BM_SeamWarpCubicRemap(benchmark::State& state) {
  velmora::SeamOverlap overlap;
  velmora::cutOutOverlap(ring()[0], ring()[1], overlap);
  const cv::Mat& image = overlap.firstCut;
  cv::Mat map(image.size(), CV_32FC2);
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      const float s = static_cast<float>(x) / static_cast<float>(map.cols);
      map.at<cv::Vec2f>(y, x) = cv::Vec2f(x - 2.3f * s, y + 0.7f * s);
    }
  }
  cv::Mat ours(image.size(), CV_8UC4), theirs(image.size(), CV_8UC4);
  timeBesidePeer(
      state, "cv_remap", [&] { velmora::remapCubicBgra(image, map, ours); },
      [&] { cv::remap(image, theirs, map, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_CONSTANT); });
  if (!sameBytes(ours, theirs)) state.SkipWithError("bytes differ");
}

// The flow refinement's 5 x 5 median of a 1365 x 4096 two-channel flow field (a smooth field
// with pixel noise), ours beside cv::medianBlur; both give the same bits (checked here too).
void BM_FlowMedian(benchmark::State& state) {
  cv::Mat noise(kFrameHeight, 1365, CV_32FC2);
  cv::RNG(11).fill(noise, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(4));
  cv::Mat flow;
  cv::GaussianBlur(noise, flow, cv::Size(31, 31), 10.0);
  cv::Mat pixelNoise(flow.size(), CV_32FC2);
  cv::RNG(12).fill(pixelNoise, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(0.3));
  flow += pixelNoise;
  cv::Mat ours(flow.size(), CV_32FC2), theirs(flow.size(), CV_32FC2);
  timeBesidePeer(
      state, "cv_medianBlur", [&] { velmora::medianBlur5x5(flow, ours); },
      [&] { cv::medianBlur(flow, theirs, 5); });
  if (!sameBytes(ours, theirs)) state.SkipWithError("bits differ");
}

}  // namespace

BENCHMARK(BM_SeamWarpCubicRemap)->Unit(benchmark::kMillisecond)->Iterations(5)->UseManualTime();
BENCHMARK(BM_FlowMedian)->Unit(benchmark::kMillisecond)->Iterations(10)->UseManualTime();
BENCHMARK(BM_FlowJob)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_OverlapFlowJob)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_TwelveFlowFields)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_StitchRing)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

BENCHMARK_MAIN();
