#include "velmora/batch_report.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>
#include <stdexcept>

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;

}  // namespace

BatchSummary summarizeBatch(const std::map<std::string, CaptureResult>& latest,
                            const std::vector<CaptureRecord>& manifest) {
  BatchSummary summary;
  std::set<std::string> wanted;
  for (const CaptureRecord& record : manifest) {
    wanted.insert(record.name);
    if (latest.count(record.name) == 0) summary.notRun.push_back(record.name);
  }
  for (const auto& [name, result] : latest) {
    if (!manifest.empty() && wanted.count(name) == 0) continue;
    summary.records.push_back(result);
    if (result.done()) {
      ++summary.done;
    } else if (result.outcome == "stopped") {
      ++summary.stopped;
    } else {
      ++summary.failed;
    }
  }
  return summary;
}

void printSummary(std::ostream& out, const BatchSummary& summary) {
  out << "velmora batch: " << summary.records.size() + summary.notRun.size()
      << " captures: " << summary.done << " done, " << summary.failed << " failed, "
      << summary.stopped << " stopped, " << summary.notRun.size() << " not run" << std::endl;
  for (const CaptureResult& result : summary.records) {
    if (result.done()) continue;
    out << "  " << result.name << " " << result.outcome << " (status " << result.code
        << "): " << result.error << std::endl;
  }
  for (const std::string& name : summary.notRun) out << "  " << name << " not run" << std::endl;
}

void writeSummaryFile(const std::string& outputDir, const BatchSummary& summary) {
  nlohmann::json records = nlohmann::json::array();
  for (const CaptureResult& r : summary.records) {
    records.push_back(statusToJson(r));
  }
  const nlohmann::json document = {{"captures", summary.records.size() + summary.notRun.size()},
                                   {"done", summary.done},
                                   {"failed", summary.failed},
                                   {"stopped", summary.stopped},
                                   {"not_run", summary.notRun},
                                   {"records", records}};
  const fs::path path = fs::path(outputDir) / "summary.json";
  const fs::path temporary = fs::path(outputDir) / ".summary.json.part";
  {
    std::ofstream out(temporary);
    out << document.dump(2) << "\n";
    if (!out.flush()) throw std::runtime_error("Cannot write " + temporary.string());
  }
  fs::rename(temporary, path);
}

}  // namespace velmora::tool
