// Batch throughput at the sizes users shoot: `velmora batch` over a manifest of 8192x4096
// captures (six 5472x3648 shots each for the single stitch, eighteen for the HDR stitch without
// its colour step), one at a time (--jobs 1) and as many at once as the batch chooses for this
// machine. Reports captures per hour and the concurrency the batch chose.
//
//   ./batch_bench                                    every case (tens of minutes)
//   ./batch_bench --benchmark_filter=Single          one operation
//   VELMORA_BENCH_DATA=/path ./batch_bench           where the simulated inputs are kept
//
// The inputs are simulated with `velmora simulate` on the first run and kept in
// VELMORA_BENCH_DATA (default: /tmp/velmora-bench-data, shared with pipeline_bench), as are the
// projection tables, prepared before any timing. Every capture of a manifest stitches the same
// shots into its own panorama; a case runs twice as many captures as there are processors (at
// least four), into a fresh output folder.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "bench_memory.h"

namespace {

namespace fs = std::filesystem;

constexpr char kShotSize[] = "5472x3648";
constexpr char kGrid[] = "8192x4096";

std::string dataFolder() {
  const char* configured = std::getenv("VELMORA_BENCH_DATA");
  return configured != nullptr ? configured : "/tmp/velmora-bench-data";
}

bool runTool(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {VELMORA_TOOL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return velmora::bench::runProgram(command).has_value();
}

// The Up camera's shots as `velmora simulate` writes them, simulated when missing.
std::string shotFolder(const std::string& name, const std::string& exposures,
                       const std::string& lastShot) {
  const std::string folder = dataFolder() + "/" + name;
  if (!fs::exists(folder + "/" + lastShot)) {
    std::cerr << "Simulating shots into " << folder << std::endl;
    runTool({"simulate", "-o", folder, "--camera", "up", "--no-truth", "--exposures", exposures,
             "--shot-size", kShotSize, "--grid", kGrid});
  }
  return folder;
}

// A manifest of `count` captures of the same shots (HDR: the bracket, no colour step).
std::string writeManifest(bool hdr, int count) {
  const std::string folder =
      hdr ? shotFolder("bracket", "2,1,0.5", "Up_5_2.jpg") : shotFolder("single", "1", "Up_5.jpg");
  std::string shots;
  for (int p = 0; p < 6; ++p) {
    for (int e = 0; e < (hdr ? 3 : 1); ++e) {
      const std::string name = "Up_" + std::to_string(p) + (hdr ? "_" + std::to_string(e) : "");
      shots += std::string(shots.empty() ? "" : ",") + "\"" + folder + "/" + name + ".jpg\"";
    }
  }
  const std::string path = dataFolder() + (hdr ? "/batch-hdr.jsonl" : "/batch-single.jsonl");
  std::ofstream manifest(path);
  for (int k = 0; k < count; ++k) {
    manifest << "{\"name\": \"c" << k << "\", \"operation\": \"" << (hdr ? "hdr" : "stitch")
             << "\", \"up\": {\"config\": \"" << folder << "/Up.txt\", \"shots\": [" << shots
             << "]}, \"shot_size\": \"" << kShotSize << "\", \"grid\": \"" << kGrid << "\"}\n";
  }
  return path;
}

// The batch's concurrency, from its plan line ("..., 4 to run, 2 at once (...)").
int concurrencyIn(const std::string& log) {
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);) {
    const size_t at = line.find(" at once");
    if (at == std::string::npos) continue;
    return std::atoi(line.c_str() + line.rfind(' ', at - 1) + 1);
  }
  return 0;
}

void BM_BatchThroughput(benchmark::State& state, bool hdr, bool defaultConcurrency) {
  // As many captures as the processors allow at once, twice over (at least four).
  const int count = std::max(4, 2 * static_cast<int>(std::thread::hardware_concurrency()));
  const std::string manifest = writeManifest(hdr, count);
  if (!runTool({"batch", "tables", manifest, "-t", dataFolder()})) {
    state.SkipWithError("the tables could not be prepared");
    return;
  }
  const std::string out = dataFolder() + "/batch-out";
  const std::string log = dataFolder() + "/batch-out.log";
  double seconds = 0.0;
  for (auto _ : state) {
    fs::remove_all(out);
    const std::string command = std::string(VELMORA_TOOL) + " batch " + manifest + " -o " + out +
                                " -t " + dataFolder() + (defaultConcurrency ? "" : " --jobs 1") +
                                " > " + log + " 2>&1";
    const auto start = std::chrono::steady_clock::now();
    const int status = std::system(command.c_str());
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (status != 0) {
      state.SkipWithError("the batch did not complete every capture (see batch-out.log)");
      return;
    }
  }
  state.counters["captures"] = count;
  state.counters["jobs"] = concurrencyIn(log);
  state.counters["captures_per_hour"] = count * state.iterations() / seconds * 3600.0;
  fs::remove_all(out);
}

BENCHMARK_CAPTURE(BM_BatchThroughput, Single_Jobs1, false, false)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_BatchThroughput, Single_Default, false, true)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_BatchThroughput, Hdr_Jobs1, true, false)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_BatchThroughput, Hdr_Default, true, true)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
