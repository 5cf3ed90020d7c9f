// The public interface fed with arbitrary bytes as its input files: the first byte chooses which
// file the rest becomes (a shot, the camera configuration or the table cache); every other file
// is valid. Init and the single-exposure stitch run at a tiny size. Any status code is fine; a
// crash, a sanitizer report or a panorama of the wrong size is not.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "fuzz_scratch.h"
#include "velmora.h"

namespace {

using velmora::fuzzing::scratchFile;

constexpr int kShotWidth = 48;
constexpr int kShotHeight = 36;
constexpr int kGridWidth = 120;
constexpr int kGridHeight = 60;
constexpr char kConfiguration[] =
    "focal 20\ncenterX 18\ncenterY 24\nrotX 0\nextra1 0\nrotZ 0\nextra2 0\nextra3 0\nextra4 0\n";

enum class Target : uint8_t { Shot, Configuration, Table, Count };

struct Files {
  std::string folder;
  std::string config;
  std::string table;
  std::vector<std::string> shots;
  std::string output;
};

// Six valid shots of the size Init is given (Up shots: width x height before the turn).
const Files& validFiles() {
  static const Files files = [] {
    Files made;
    made.folder = velmora::fuzzing::scratchFolder();
    made.config = scratchFile("Up.txt");
    made.table = scratchFile("table_Up.bin");
    made.output = scratchFile("pano.png");
    for (int k = 0; k < 6; ++k) {
      cv::Mat shot(kShotHeight, kShotWidth, CV_8UC3);
      cv::randu(shot, 0, 256);
      made.shots.push_back(scratchFile("shot" + std::to_string(k) + ".png"));
      cv::imwrite(made.shots.back(), shot);
    }
    return made;
  }();
  return files;
}

void restoreValidFiles(const Files& files) {
  velmora::fuzzing::writeBytes(files.config, reinterpret_cast<const uint8_t*>(kConfiguration),
                               sizeof kConfiguration - 1);
  std::remove(files.table.c_str());
  std::remove(files.output.c_str());
  std::remove(scratchFile("fuzzed").c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  velmora::fuzzing::silenceConsole();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const Files& files = validFiles();
  restoreValidFiles(files);
  const auto target = static_cast<Target>(data[0] % static_cast<uint8_t>(Target::Count));
  std::vector<std::string> shots = files.shots;
  switch (target) {
    case Target::Shot:
      shots[data[0] / 3 % 6] = scratchFile("fuzzed");
      velmora::fuzzing::writeBytes(shots[data[0] / 3 % 6], data + 1, size - 1);
      break;
    case Target::Configuration:
      velmora::fuzzing::writeBytes(files.config, data + 1, size - 1);
      break;
    case Target::Table:
      velmora::fuzzing::writeBytes(files.table, data + 1, size - 1);
      break;
    case Target::Count:
      break;
  }

  void* handle = ZEMU_CreateOptFlowStitchHandle();
  ZEMU_InitOptFlowStitchHandle(handle, files.config.c_str(), files.folder.c_str(), kShotWidth,
                               kShotHeight, kGridWidth, kGridHeight);
  if (ZEMU_GetOptFlowStitchCode(handle) == 0) {
    std::vector<const char*> paths;
    for (const auto& shot : shots) paths.push_back(shot.c_str());
    ZEMU_ExecuteOptFlowStitchHandle(handle, files.config.c_str(), paths.data(),
                                    files.output.c_str(), 1.0f, 1.0f, 1.0f);
    if (ZEMU_GetOptFlowStitchCode(handle) == 0) {
      // Success means a whole panorama of the grid's size.
      const cv::Mat panorama = cv::imread(files.output);
      if (panorama.cols != kGridWidth || panorama.rows != kGridHeight) __builtin_trap();
    }
  }
  ZEMU_DestroyOptFlowStitchHandle(handle);
  return 0;
}
