#include "velmora/batch_status.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

}  // namespace

json statusToJson(const CaptureResult& r) {
  return {{"name", r.name},     {"operation", r.operation}, {"outcome", r.outcome},
          {"code", r.code},     {"error", r.error},         {"seconds", r.seconds},
          {"output", r.output}, {"outputs", r.outputs},     {"signal", r.signal},
          {"task", r.task},     {"finished", r.finished},   {"log", r.log}};
}

namespace {

CaptureResult resultFromJson(const json& j) {
  CaptureResult r;
  r.name = j.at("name").get<std::string>();
  r.operation = j.at("operation").get<std::string>();
  r.outcome = j.at("outcome").get<std::string>();
  r.code = j.at("code").get<int>();
  r.error = j.at("error").get<std::string>();
  r.seconds = j.at("seconds").get<double>();
  r.output = j.at("output").get<std::string>();
  r.outputs = j.value("outputs", std::vector<std::string>{r.output});
  r.signal = j.value("signal", 0);
  r.task = j.value("task", -1);
  r.finished = j.value("finished", "");
  r.log = j.value("log", "");
  return r;
}

bool isStatusFileName(const std::string& name) {
  return name == "status.jsonl" || (name.rfind("status-task-", 0) == 0 && name.size() > 18 &&
                                    name.compare(name.size() - 6, 6, ".jsonl") == 0);
}

}  // namespace

std::string statusFilePath(const std::string& outputDir, int task) {
  return (fs::path(outputDir) /
          (task < 0 ? "status.jsonl" : "status-task-" + std::to_string(task) + ".jsonl"))
      .string();
}

void appendStatus(const std::string& statusPath, const CaptureResult& result) {
  // One write() of the whole line with O_APPEND: readers never see half a line of a live run.
  const std::string line = statusToJson(result).dump() + "\n";
  const int fd = ::open(statusPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  const bool written =
      fd >= 0 && ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  const bool synced = fd >= 0 && ::fsync(fd) == 0;
  if (fd >= 0) ::close(fd);
  if (!written || !synced) throw std::runtime_error("Cannot write the status file " + statusPath);
}

std::vector<CaptureResult> readStatusFile(const std::string& statusPath) {
  std::vector<CaptureResult> results;
  std::ifstream in(statusPath);
  for (std::string line; std::getline(in, line);) {
    try {
      results.push_back(resultFromJson(json::parse(line)));
    } catch (const json::exception&) {
      // An incomplete last line of a killed run: that capture is not recorded.
    }
  }
  return results;
}

std::map<std::string, CaptureResult> readStatusFolder(const std::string& outputDir) {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(outputDir, error)) {
    if (isStatusFileName(entry.path().filename().string())) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  std::map<std::string, CaptureResult> latest;
  for (const std::string& file : files) {
    for (CaptureResult& result : readStatusFile(file)) {
      const auto known = latest.find(result.name);
      if (known == latest.end() || known->second.finished <= result.finished)
        latest[result.name] = std::move(result);
    }
  }
  return latest;
}

std::string utcTimestamp() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

}  // namespace velmora::tool
