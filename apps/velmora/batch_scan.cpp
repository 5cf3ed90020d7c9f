#include "velmora/batch_scan.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kShotExtensions[] = {".jpg", ".jpeg", ".png"};

// The extension under which `stem` exists, or empty.
std::string existingExtension(const fs::path& stem) {
  for (const char* extension : kShotExtensions) {
    if (fs::is_regular_file(stem.string() + extension)) return extension;
  }
  return "";
}

std::string safeName(std::string name) {
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '_' && c != '-') c = '_';
  }
  if (name.empty() || name[0] == '.') name.insert(0, "capture");
  return name;
}

class CaptureScanner {
 public:
  explicit CaptureScanner(const ScanSettings& settings)
      : settings_(settings),
        manifestDir_(fs::absolute(settings.manifestPath).parent_path()),
        shotSize_(settings.shotSize) {}

  // The record of one capture folder, or null when it holds no camera.
  json scan(const fs::path& folder) {
    const bool bracketed = !existingExtension(folder / "Up_0_0").empty();
    const bool upSingle = !existingExtension(folder / "Up_0").empty();
    const bool downSingle = !existingExtension(folder / "Down_0").empty();
    const bool hasUp = fs::is_regular_file(folder / "Up.txt");
    const bool hasDown = fs::is_regular_file(folder / "Down.txt");
    json record = {{"name", safeName(folder.filename().string())}};
    if (hasUp && bracketed) {
      record["operation"] = "hdr";
      record["up"] = camera(folder, "Up", 3);
      record["isp"] = settings_.colourStep;
    } else if ((hasUp && upSingle) || (hasDown && downSingle)) {
      record["operation"] = "stitch";
      if (hasUp && upSingle) record["up"] = camera(folder, "Up", 1);
      if (hasDown && downSingle) record["down"] = camera(folder, "Down", 1);
    } else {
      return nullptr;
    }
    record["grid"] = sizeText(settings_.grid);
    record["shot_size"] = sizeText(shotSize_);
    return record;
  }

 private:
  static std::string sizeText(PixelSize size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
  }

  std::string relative(const fs::path& path) const {
    return fs::proximate(fs::absolute(path), manifestDir_).string();
  }

  // The camera's configuration and shots, position by position; a bracket holds as many
  // exposures as position 0 has (at most `perPosition`).
  json camera(const fs::path& folder, const std::string& camera, int perPosition) {
    int exposures = 1;
    if (perPosition > 1) {
      exposures = 0;
      while (exposures < perPosition &&
             !existingExtension(folder / (camera + "_0_" + std::to_string(exposures))).empty())
        ++exposures;
    }
    const auto stem = [&](int p, int e) {
      return folder /
             (camera + "_" + std::to_string(p) + (perPosition > 1 ? "_" + std::to_string(e) : ""));
    };
    const std::string firstExtension = existingExtension(stem(0, 0));
    json shots = json::array();
    for (int p = 0; p < 6; ++p) {
      for (int e = 0; e < exposures; ++e) {
        const std::string extension = existingExtension(stem(p, e));
        shots.push_back(
            relative(stem(p, e).string() + (extension.empty() ? firstExtension : extension)));
      }
    }
    if (shotSize_.width == 0) {
      const cv::Mat first = cv::imread(stem(0, 0).string() + firstExtension, cv::IMREAD_UNCHANGED);
      if (first.empty())
        throw std::runtime_error("Cannot read " + stem(0, 0).string() + firstExtension +
                                 " for the shot size; give --shot-size.");
      shotSize_ = PixelSize{first.cols, first.rows};
    }
    return {{"config", relative(folder / (camera + ".txt"))}, {"shots", shots}};
  }

  const ScanSettings& settings_;
  fs::path manifestDir_;
  PixelSize shotSize_;
};

}  // namespace

std::vector<json> scanCaptureFolders(const ScanSettings& settings) {
  if (!fs::is_directory(settings.folder))
    throw std::runtime_error("No folder " + settings.folder + ".");
  std::vector<fs::path> folders;
  for (const auto& entry : fs::directory_iterator(settings.folder)) {
    if (entry.is_directory()) folders.push_back(entry.path());
  }
  std::sort(folders.begin(), folders.end());
  CaptureScanner scanner(settings);
  std::vector<json> records;
  for (const fs::path& folder : folders) {
    json record = scanner.scan(folder);
    if (record.is_null()) {
      std::cerr << "velmora batch scan: " << folder.string()
                << " holds no Up.txt with Up_<p> shots nor Down.txt with Down_<p> shots; left out."
                << std::endl;
      continue;
    }
    records.push_back(std::move(record));
  }
  if (records.empty()) throw std::runtime_error("No capture folder in " + settings.folder + ".");
  return records;
}

}  // namespace velmora::tool
