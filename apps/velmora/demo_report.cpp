#include "velmora/demo_report.h"

#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "velmora/report_images.h"

namespace velmora::tool {

namespace {

cv::Mat readImage(const std::string& path, int mode) {
  cv::Mat image = cv::imread(path, mode);
  if (image.empty()) throw std::runtime_error("Cannot read " + path + ".");
  return image;
}

void writeImage(const std::string& path, const cv::Mat& image) {
  if (!cv::imwrite(path, image)) throw std::runtime_error("Cannot write " + path + ".");
}

}  // namespace

ReportPanorama demoReportPanorama(const DemoPanoramaFiles& files, const std::string& reportFolder) {
  namespace fs = std::filesystem;
  fs::create_directories(reportFolder);
  ReportPanorama entry;
  entry.id = files.camera;
  entry.title = files.camera + " camera";
  entry.viewerReadyFile = files.camera + "_360.jpg";
  entry.flatFile = files.camera + "_panorama" + fs::path(files.panorama).extension().string();
  entry.heatMapFile = files.camera + "_error.png";

  entry.window = exportViewerReady(files.panorama, reportFolder + "/" + entry.viewerReadyFile, {});
  const cv::Mat panorama = readImage(files.panorama, cv::IMREAD_COLOR);
  const cv::Mat truth = readImage(files.truth, cv::IMREAD_COLOR);
  const cv::Mat seen = readImage(files.seen, cv::IMREAD_GRAYSCALE);
  fs::copy_file(files.panorama, reportFolder + "/" + entry.flatFile,
                fs::copy_options::overwrite_existing);
  writeImage(reportFolder + "/" + entry.heatMapFile, errorHeatMap(panorama, truth, seen));
  entry.agreement = sim::measureAgreement(panorama, truth, seen);
  return entry;
}

}  // namespace velmora::tool
