// velmora batch: stitches many captures listed in a manifest, several at once, each in a process
// of its own, with progress, a status file and resumption; `--task I` runs the share of one task
// of a job array. `batch scan` writes a manifest for a folder of capture folders, `batch tables`
// prepares the projection tables, `batch report` merges the status files of every task.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>

#include "velmora/batch_progress.h"
#include "velmora/batch_report.h"
#include "velmora/batch_report_page.h"
#include "velmora/batch_resources.h"
#include "velmora/batch_runner.h"
#include "velmora/batch_scan.h"
#include "velmora/batch_tables.h"
#include "velmora/command.h"
#include "velmora/viewer_ready_option.h"

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;

constexpr char kBatchFooter[] =
    R"(The manifest holds one capture per line (JSON), for example
  {"name": "hall", "operation": "stitch", "up": {"config": "hall/Up.txt",
   "shots": ["hall/Up_0.jpg", ..., "hall/Up_5.jpg"]}, "grid": "8192x4096"}
(README: "Many captures"). OUT receives the panoramas, logs/<name>.err and .out, and
status.jsonl (status-task-<I>.jsonl for --task I): one record per finished capture.
A second run skips the captures recorded done whose panoramas are there, and the failed
ones unless --retry-failed. Ctrl-C or SIGTERM stops the running captures and removes
what they had written; the exit code is then 128 + the signal, else 0 when every capture
of the run's share is done and 1 otherwise.

--task I (or SLURM_ARRAY_TASK_ID) runs the captures k with k mod N = I, N from --tasks
(default: one capture per task).)";

class BatchCommand : public Command {
 public:
  const char* name() const override { return "batch"; }
  const char* summary() const override {
    return "Stitch the captures a manifest lists, several at once, resumably; scan, tables, "
           "report.";
  }

  void configure(CLI::App& command) override {
    command.footer(kBatchFooter);
    command.require_subcommand(0, 1);
    command.add_option("manifest", manifestPath_, "The manifest (JSON lines)")
        ->check(CLI::ExistingFile);
    command.add_option("-o,--out", outputDir_, "Output folder");
    command.add_option("-t,--tables", tableDir_, "Projection table folder (default: OUT/tables)");
    command
        .add_option("-j,--jobs", jobs_, "Captures at once (default: from processors and memory)")
        ->check(CLI::PositiveNumber);
    command.add_option("--task", task_, "Run the share of this array task (0-based)")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--tasks", tasks_, "Number of array tasks (default: one per capture)")
        ->check(CLI::PositiveNumber);
    command.add_flag("--retry-failed", retryFailed_, "Run the captures that failed again");
    command.add_option("--colour-step", colourStepDir_,
                       "Folder with isp.bat and asset/ for the captures that run the colour step "
                       "(default: the working directory)");
    viewerReady_.configure(command);

    scan_ = command.add_subcommand("scan", "Write a manifest for a folder of capture folders");
    scan_->add_option("folder", scanSettings_.folder, "Folder of capture folders")->required();
    scan_->add_option("-o,--out", scanSettings_.manifestPath,
                      "Manifest to write (default: FOLDER/manifest.jsonl)");
    addSizeOption(*scan_, "--grid", scanSettings_.grid, "Panorama size");
    addSizeOption(*scan_, "--shot-size", scanSettings_.shotSize,
                  "Shot size (default: the first capture's first shot's)");
    scan_->add_flag("--isp", scanSettings_.colourStep, "HDR captures run the colour step");

    tables_ = command.add_subcommand("tables", "Prepare the projection tables a manifest needs");
    tables_->add_option("manifest", tablesManifest_, "The manifest")
        ->required()
        ->check(CLI::ExistingFile);
    tables_->add_option("-t,--tables", tablesDir_, "Projection table folder")->required();

    report_ = command.add_subcommand("report", "Merge the status files of a batch's output folder");
    report_->add_option("out", reportDir_, "The batch's output folder")
        ->required()
        ->check(CLI::ExistingDirectory);
    report_->add_option("--manifest", reportManifest_, "Also name the captures with no record")
        ->check(CLI::ExistingFile);
  }

  int run() override {
    if (scan_->parsed()) return runScan();
    if (tables_->parsed()) return runTables();
    if (report_->parsed()) return runReport();
    if (manifestPath_.empty() || outputDir_.empty())
      throw std::invalid_argument("Give a manifest and -o OUT (see velmora batch --help).");
    return runBatch();
  }

 private:
  int runScan() {
    if (scanSettings_.manifestPath.empty())
      scanSettings_.manifestPath = (fs::path(scanSettings_.folder) / "manifest.jsonl").string();
    const auto records = scanCaptureFolders(scanSettings_);
    const std::string temporary = scanSettings_.manifestPath + ".part";
    {
      std::ofstream out(temporary);
      for (const auto& record : records) out << record.dump() << "\n";
      if (!out.flush()) throw std::runtime_error("Cannot write " + temporary);
    }
    fs::rename(temporary, scanSettings_.manifestPath);
    std::cout << "velmora batch scan: " << records.size() << " captures written to "
              << scanSettings_.manifestPath << std::endl;
    return 0;
  }

  int runTables() {
    fs::create_directories(tablesDir_);
    return prepareTables(readManifest(tablesManifest_), tablesDir_) ? 0 : 1;
  }

  int runReport() {
    const std::vector<CaptureRecord> manifest =
        reportManifest_.empty() ? std::vector<CaptureRecord>{} : readManifest(reportManifest_);
    const BatchSummary summary = summarizeBatch(readStatusFolder(reportDir_), manifest);
    printSummary(std::cout, summary);
    writeSummaryFile(reportDir_, summary);
    std::cout << "Summary written to " << (fs::path(reportDir_) / "summary.json").string()
              << std::endl;
    std::cout << "Report page written to " << writeBatchReportPage(reportDir_, summary)
              << std::endl;
    return summary.allDone() ? 0 : 1;
  }

  // The index of this array task, -1 for a local run.
  int arrayTask() const {
    if (task_ >= 0) return task_;
    const char* slurmTask = std::getenv("SLURM_ARRAY_TASK_ID");
    if (slurmTask == nullptr || *slurmTask == '\0') return -1;
    char* end = nullptr;
    const long task = std::strtol(slurmTask, &end, 10);
    if (*end != '\0' || task < 0)
      throw std::invalid_argument(std::string("SLURM_ARRAY_TASK_ID is not a task index: ") +
                                  slurmTask);
    return static_cast<int>(task);
  }

  // The run's share of the manifest.
  std::vector<CaptureRecord> share(std::vector<CaptureRecord> records, int task) const {
    if (task < 0) return records;
    const size_t tasks = tasks_ > 0 ? static_cast<size_t>(tasks_) : records.size();
    if (static_cast<size_t>(task) >= tasks) {
      throw std::invalid_argument("Task " + std::to_string(task) + " is beyond the " +
                                  std::to_string(tasks) + " tasks of " + manifestPath_ + ".");
    }
    std::vector<CaptureRecord> mine;
    for (size_t k = task; k < records.size(); k += tasks) mine.push_back(std::move(records[k]));
    return mine;
  }

  void requireColourStepFolder(const std::vector<CaptureRecord>& captures) const {
    for (const CaptureRecord& record : captures) {
      if (!record.needsColourStep()) continue;
      const fs::path folder(colourStepDir_);
      if (!fs::is_regular_file(folder / "isp.bat") || !fs::is_directory(folder / "asset")) {
        throw std::runtime_error(
            record.name + " runs the colour step, which needs isp.bat and asset/ in " +
            folder.string() +
            ": copy share/isp/isp.bat and share/isp/asset/ there or give --colour-step "
            "(README: \"Colour step (ISP) on Linux\").");
      }
      return;
    }
  }

  int runBatch() {
    const int task = arrayTask();
    const std::vector<CaptureRecord> mine = share(readManifest(manifestPath_), task);
    colourStepDir_ = fs::absolute(colourStepDir_.empty() ? "." : colourStepDir_).string();
    requireColourStepFolder(mine);
    fs::create_directories(outputDir_);
    outputDir_ = fs::absolute(outputDir_).lexically_normal().string();
    if (tableDir_.empty()) tableDir_ = (fs::path(outputDir_) / "tables").string();
    fs::create_directories(tableDir_);
    tableDir_ = fs::absolute(tableDir_).lexically_normal().string();

    const auto earlier = readStatusFolder(outputDir_);
    std::vector<CaptureRecord> toRun;
    size_t doneEarlier = 0, failedEarlier = 0;
    for (const CaptureRecord& record : mine) {
      const auto known = earlier.find(record.name);
      if (known != earlier.end() && known->second.done() && outputsExist(record)) {
        ++doneEarlier;
      } else if (known != earlier.end() && !known->second.done() &&
                 known->second.outcome != "stopped" && !retryFailed_) {
        ++failedEarlier;
      } else {
        toRun.push_back(record);
      }
    }
    const MachineMeans means = machineMeans();
    const unsigned jobs = jobs_ > 0 ? jobs_ : defaultJobs(toRun.empty() ? mine : toRun, means);
    std::cout << "velmora batch: " << mine.size() << " captures"
              << (task >= 0 ? " in task " + std::to_string(task) : "") << ": " << doneEarlier
              << " done earlier, " << failedEarlier << " failed earlier"
              << (failedEarlier > 0 ? " (--retry-failed runs them again)" : "") << ", "
              << toRun.size() << " to run, " << jobs << " at once ("
              << (jobs_ > 0 ? "--jobs" : describeMeans(means)) << ")" << std::endl;

    BatchRun run;
    if (!toRun.empty()) {
      if (const int stop = prepareTablesUninterrupted(toRun)) return stop;
      BatchSettings settings{
          outputDir_, tableDir_, colourStepDir_, statusFilePath(outputDir_, task), jobs, task};
      BatchProgress progress(std::cout, toRun.size(), isatty(STDOUT_FILENO) != 0);
      run = runCaptures(toRun, settings, progress);
      progress.close();
    }
    const BatchSummary summary = summarizeBatch(readStatusFolder(outputDir_), mine);
    printSummary(std::cout, summary);
    if (viewerReady_.requested()) writeViewerReady(mine, summary);
    // An array task's share is not the batch: `batch report` writes the page of all tasks.
    if (task < 0) {
      std::cout << "Report page written to " << writeBatchReportPage(outputDir_, summary)
                << std::endl;
    }
    if (run.stopSignal != 0) {
      std::cout << "velmora batch: stopped by signal " << run.stopSignal
                << "; run the same command again to go on." << std::endl;
      return 128 + run.stopSignal;
    }
    return summary.allDone() ? 0 : 1;
  }

  // The viewer-ready file beside every panorama of the captures done, with the camera details of
  // the first shot of the camera that made it.
  void writeViewerReady(const std::vector<CaptureRecord>& captures,
                        const BatchSummary& summary) const {
    for (const CaptureResult& result : summary.records) {
      if (!result.done()) continue;
      const auto record =
          std::find_if(captures.begin(), captures.end(),
                       [&](const CaptureRecord& capture) { return capture.name == result.name; });
      if (record == captures.end()) continue;
      for (size_t k = 0; k < result.outputs.size(); ++k) {
        const CameraShots& camera =
            k == 0 && !record->up.config.empty() ? record->up : record->down;
        viewerReady_.writeBeside(result.outputs[k],
                                 camera.shots.empty() ? std::string() : camera.shots.front());
      }
    }
  }

  // Prepares the tables with SIGINT and SIGTERM held back, so that a table is never left half
  // written; a stop asked for meanwhile takes effect after it. Returns 0 to go on, else the
  // exit code: 1 when an Init failed, 128 + the signal when stopped.
  int prepareTablesUninterrupted(const std::vector<CaptureRecord>& toRun) const {
    sigset_t stops, previous;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    sigprocmask(SIG_BLOCK, &stops, &previous);
    const bool prepared = prepareTables(toRun, tableDir_);
    const timespec now{0, 0};
    const int stop = sigtimedwait(&stops, nullptr, &now);
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    if (stop > 0) {
      std::cout << "velmora batch: stopped by signal " << stop
                << " before any capture ran; run the same command again to go on." << std::endl;
      return 128 + stop;
    }
    return prepared ? 0 : 1;
  }

  bool outputsExist(const CaptureRecord& record) const {
    for (const std::string& output : record.outputs()) {
      if (!fs::is_regular_file(fs::path(outputDir_) / output)) return false;
    }
    return true;
  }

  std::string describeMeans(const MachineMeans& means) const {
    std::ostringstream text;
    text << means.processors << " processors, " << std::fixed << std::setprecision(1)
         << means.availableBytes / 1e9 << " GB available";
    return text.str();
  }

  std::string manifestPath_;
  std::string outputDir_;
  std::string tableDir_;
  unsigned jobs_ = 0;
  int task_ = -1;
  int tasks_ = 0;
  bool retryFailed_ = false;
  ViewerReadyOption viewerReady_;
  std::string colourStepDir_;

  CLI::App* scan_ = nullptr;
  ScanSettings scanSettings_;
  CLI::App* tables_ = nullptr;
  std::string tablesManifest_;
  std::string tablesDir_;
  CLI::App* report_ = nullptr;
  std::string reportDir_;
  std::string reportManifest_;
};

const CommandRegistration<BatchCommand> registration;

}  // namespace

}  // namespace velmora::tool
