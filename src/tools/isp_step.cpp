#include "tools/isp_step.h"

#include <opencv2/imgcodecs.hpp>

#include "common/black_bands.h"
#include "common/console.h"
#include "common/image_io.h"
#include "common/saturation.h"
#include "common/status.h"
#include "tools/isp_script.h"

namespace velmora {

namespace {

constexpr int kFinalJpegQuality = 85;

// Chooses the profile from the intermediate image's saturation and prints the measure.
void chooseProfileFor(const std::string& intermediatePath) {
  const cv::Mat intermediate = readColorImage(intermediatePath);
  if (intermediate.empty()) {
    throw Failure("ISP: intermediate image " + intermediatePath + " cannot be read.");
  }
  const float saturation = measureSaturation(intermediate.clone());
  console::out("satu = ", saturation);
  installIspProfile(saturation);
}

// Reads what the script left at finalPath, frames it with the black bands and writes it back.
void frameScriptResult(const CameraGeometry& up, const std::string& finalPath) {
  const cv::Mat result = readColorImage(finalPath);
  if (result.empty()) {
    throw Failure("ISP: the script left no readable image at " + finalPath + ".");
  }
  const int panoramaWidth = static_cast<int>(up.outWidth);
  if (result.cols != panoramaWidth) {
    throw Failure("ISP: the script's result " + finalPath + " is " + std::to_string(result.cols) +
                  " columns wide, the panorama " + std::to_string(panoramaWidth) + ".");
  }
  const cv::Mat framed = addBlackBands(result, blackBandRows(up.outHeight), panoramaWidth);
  writeImage(finalPath, framed, {cv::IMWRITE_JPEG_QUALITY, kFinalJpegQuality});
}

}  // namespace

void executeIsp(const PendingIspTable& pending, const CameraGeometry& up, const std::string& name) {
  console::out("ISP process start.");
  const auto entry = pending.find(name);
  if (entry == pending.end()) {
    console::out(name, " not found.");
  } else {
    const std::string& finalPath = entry->first;
    const std::string& intermediatePath = entry->second;
    chooseProfileFor(intermediatePath);

    console::Stopwatch stopwatch;
    console::out(console::kIspSection);
    runIspScript(finalPath, intermediatePath);
    console::printDuration("ISP spend time : ", stopwatch);

    frameScriptResult(up, finalPath);
  }
  console::out("ISP process finished.");
  console::out(console::kSeparator);
}

}  // namespace velmora
