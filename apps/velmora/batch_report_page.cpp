#include "velmora/batch_report_page.h"

#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "velmora/report_images.h"
#include "velmora/report_page.h"

namespace velmora::tool {

namespace fs = std::filesystem;

namespace {

// The report's files of one panorama of a capture; throws std::runtime_error when it cannot be
// read or a file cannot be written.
ReportPanorama panoramaOf(const std::string& title, const fs::path& panorama, const std::string& id,
                          const fs::path& folder) {
  ReportPanorama entry;
  entry.id = id;
  entry.title = title;
  entry.viewerReadyFile = id + "_360.jpg";
  entry.flatFile = id + panorama.extension().string();
  entry.loadAtOnce = false;
  entry.window =
      exportViewerReady(panorama.string(), (folder / entry.viewerReadyFile).string(), {});
  fs::copy_file(panorama, folder / entry.flatFile, fs::copy_options::overwrite_existing);
  return entry;
}

void writePreview(const fs::path& panorama, const fs::path& preview) {
  const cv::Mat image = cv::imread(panorama.string(), cv::IMREAD_COLOR);
  if (image.empty()) throw std::runtime_error("Cannot read " + panorama.string() + ".");
  if (!cv::imwrite(preview.string(), thumbnailOf(image))) {
    throw std::runtime_error("Cannot write " + preview.string() + ".");
  }
}

std::string summaryText(const std::string& outputDir, const BatchSummary& summary) {
  std::ostringstream text;
  text << summary.records.size() + summary.notRun.size() << " captures in " << outputDir << ": "
       << summary.done << " done, " << summary.failed << " failed, " << summary.stopped
       << " stopped, " << summary.notRun.size() << " not run.";
  return text.str();
}

}  // namespace

std::string writeBatchReportPage(const std::string& outputDir, const BatchSummary& summary) {
  const fs::path folder = fs::path(outputDir) / "report";
  fs::create_directories(folder);
  ReportContent content;
  content.title = "Velmora batch";
  content.summary = summaryText(outputDir, summary);
  for (const CaptureResult& result : summary.records) {
    ReportCapture capture{result, "", ""};
    if (result.done()) {
      try {
        const std::string id = "capture-" + std::to_string(content.captures.size() + 1);
        std::vector<ReportPanorama> panoramas;
        for (size_t k = 0; k < result.outputs.size(); ++k) {
          const fs::path panorama = result.outputs[k];
          const std::string title = result.outputs.size() == 1
                                        ? result.name
                                        : result.name + ": " + panorama.filename().string();
          panoramas.push_back(
              panoramaOf(title, panorama, id + "-" + std::to_string(k + 1), folder));
        }
        writePreview(result.output, folder / (id + "_preview.jpg"));
        content.panoramas.insert(content.panoramas.end(), panoramas.begin(), panoramas.end());
        capture.thumbnailFile = id + "_preview.jpg";
        capture.panoramaId = id + "-1";
      } catch (const std::exception& error) {
        capture.result.error = std::string("No view of the panorama: ") + error.what();
      }
    }
    content.captures.push_back(capture);
  }
  for (const std::string& name : summary.notRun) {
    ReportCapture capture;
    capture.result.name = name;
    capture.result.outcome = "not run";
    content.captures.push_back(capture);
  }
  writeReportPage(folder.string(), content);
  return (folder / "index.html").string();
}

}  // namespace velmora::tool
