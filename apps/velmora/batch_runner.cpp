#include "velmora/batch_runner.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "velmora/batch_capture.h"

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// How often, in seconds, the progress bar is redrawn while no capture ends.
constexpr time_t kTickSeconds = 1;
// The library names the temporary of a file it writes ".velmora-<process id>-<n>-<name>".
std::string temporaryPrefix(pid_t pid) {
  return ".velmora-" + std::to_string(pid) + "-";
}

struct RunningCapture {
  const CaptureRecord* record = nullptr;
  Clock::time_point start;
  std::string workDir;  // the capture's own working directory, when it runs the colour step
};

class CaptureRunner {
 public:
  CaptureRunner(const BatchSettings& settings, BatchProgress& progress)
      : settings_(settings), progress_(progress) {}

  BatchRun run(const std::vector<CaptureRecord>& captures) {
    std::deque<const CaptureRecord*> queue;
    for (const CaptureRecord& record : captures) queue.push_back(&record);
    fs::create_directories(logDir());

    // Signals are taken synchronously below; the children get the mask and dispositions back.
    sigset_t signals, previous;
    sigemptyset(&signals);
    for (int s : {SIGINT, SIGTERM, SIGCHLD}) sigaddset(&signals, s);
    sigprocmask(SIG_BLOCK, &signals, &previous);
    try {
      while (!running_.empty() || (!queue.empty() && stopSignal_ == 0)) {
        while (stopSignal_ == 0 && running_.size() < settings_.jobs && !queue.empty()) {
          start(*queue.front());
          queue.pop_front();
        }
        if (reapFinished()) continue;
        waitForSignal(signals);
      }
    } catch (...) {
      abandonRunning();
      sigprocmask(SIG_SETMASK, &previous, nullptr);
      throw;
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    return BatchRun{std::move(results_), stopSignal_};
  }

 private:
  std::string logDir() const { return (fs::path(settings_.outputDir) / "logs").string(); }
  std::string logPath(const CaptureRecord& record, const char* stream) const {
    return (fs::path(logDir()) / (record.name + "." + stream)).string();
  }
  std::string outputPath(const std::string& output) const {
    return (fs::path(settings_.outputDir) / output).string();
  }

  // A copy of the colour step's set-up: the library rewrites asset/isp_minion.pp3 before every
  // colour step, so concurrent captures each need their own.
  std::string prepareWorkDir(const CaptureRecord& record) const {
    const fs::path dir = fs::path(settings_.outputDir) / ".work" / record.name;
    fs::remove_all(dir);
    fs::create_directories(dir);
    fs::create_symlink(fs::path(settings_.colourStepDir) / "isp.bat", dir / "isp.bat");
    fs::copy(fs::path(settings_.colourStepDir) / "asset", dir / "asset",
             fs::copy_options::recursive);
    return dir.string();
  }

  // Everything a capture may have left: its outputs, the colour step's intermediate and the
  // library's hidden temporaries of the capture's process.
  void removeLeftovers(const CaptureRecord& record, pid_t pid) const {
    std::error_code ignored;
    std::vector<fs::path> folders = {settings_.tableDir};
    for (const std::string& output : record.outputs()) {
      const std::string path = outputPath(output);
      fs::remove(path, ignored);
      if (record.needsColourStep()) fs::remove(path + ".jpg", ignored);
      folders.push_back(fs::path(path).parent_path());
    }
    if (pid <= 0) return;
    const std::string prefix = temporaryPrefix(pid);
    for (const fs::path& folder : folders) {
      for (const auto& entry : fs::directory_iterator(folder, ignored)) {
        if (entry.path().filename().string().rfind(prefix, 0) == 0) fs::remove(entry, ignored);
      }
    }
  }

  void start(const CaptureRecord& record) {
    removeLeftovers(record, 0);
    for (const std::string& output : record.outputs())
      fs::create_directories(fs::path(outputPath(output)).parent_path());
    RunningCapture capture{&record, Clock::now(), ""};
    if (record.needsColourStep()) capture.workDir = prepareWorkDir(record);

    // Everything the child needs is made before fork: after it only async-signal-safe calls.
    const std::vector<std::string> arguments = {
        "velmora",  kCaptureSubcommand, "--record", recordToJson(record).dump(),
        "--tables", settings_.tableDir, "--out",    settings_.outputDir};
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const std::string outLog = logPath(record, "out"), errLog = logPath(record, "err");
    const char* workDir = capture.workDir.empty() ? nullptr : capture.workDir.c_str();
    const pid_t parent = getpid();

    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("Cannot start a process for " + record.name + ".");
    if (pid == 0) {
      // Its own process group, so a stop reaches the colour step's programs too; it ends with
      // the batch should the batch be killed.
      setpgid(0, 0);
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      if (getppid() != parent) _exit(127);
      const int out = open(outLog.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int err = open(errLog.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(127);
      if (workDir != nullptr && chdir(workDir) != 0) _exit(127);
      // A stop the batch passes on must reach the capture even where the batch was started
      // with these signals ignored (a background job of a script).
      struct sigaction byDefault {};
      byDefault.sa_handler = SIG_DFL;
      sigaction(SIGINT, &byDefault, nullptr);
      sigaction(SIGTERM, &byDefault, nullptr);
      sigset_t none;
      sigemptyset(&none);
      sigprocmask(SIG_SETMASK, &none, nullptr);
      execv("/proc/self/exe", argv.data());
      _exit(127);
    }
    setpgid(pid, pid);
    running_.emplace(pid, capture);
    progress_.started();
  }

  // Reaps the captures that have ended; returns whether any did.
  bool reapFinished() {
    bool any = false;
    int status = 0;
    pid_t pid;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
      const auto it = running_.find(pid);
      if (it == running_.end()) continue;
      finish(pid, it->second, status);
      running_.erase(it);
      any = true;
    }
    return any;
  }

  void waitForSignal(const sigset_t& signals) {
    const timespec tick{kTickSeconds, 0};
    siginfo_t info;
    const int signal = sigtimedwait(&signals, &info, &tick);
    if ((signal == SIGINT || signal == SIGTERM) && stopSignal_ == 0) {
      stopSignal_ = signal;
      stopAll(signal);
    }
    progress_.tick();
  }

  // After a failure of the batch itself (its status file cannot be written, say): stops and
  // waits for every running capture and removes what they wrote, recording nothing.
  void abandonRunning() noexcept {
    stopAll(SIGTERM);
    for (const auto& [pid, capture] : running_) {
      int status = 0;
      waitpid(pid, &status, 0);
      try {
        removeLeftovers(*capture.record, pid);
      } catch (...) {
        // Nothing more can be done about it; the batch's own error is reported.
      }
    }
    running_.clear();
  }

  void stopAll(int signal) {
    for (const auto& entry : running_) kill(-entry.first, signal);
  }

  // The first line the capture's process wrote on standard error that is the library's (not the
  // tool's own status line), or else the tool's line without its prefix.
  std::string errorLine(const CaptureRecord& record) const {
    std::ifstream in(logPath(record, "err"));
    const std::string toolPrefix = std::string("velmora ") + kCaptureSubcommand + ": ";
    std::string first, line;
    while (std::getline(in, line)) {
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      if (line.rfind(toolPrefix, 0) != 0) return line;
      if (first.empty()) first = line.substr(toolPrefix.size());
    }
    return first;
  }

  void finish(pid_t pid, const RunningCapture& capture, int status) {
    const CaptureRecord& record = *capture.record;
    CaptureResult result;
    result.name = record.name;
    result.operation = operationName(record.operation);
    result.seconds = std::chrono::duration<double>(Clock::now() - capture.start).count();
    for (const std::string& output : record.outputs()) result.outputs.push_back(outputPath(output));
    result.output = result.outputs.front();
    result.task = settings_.task;
    result.log = logPath(record, "err");
    const std::string error = errorLine(record);
    if (WIFEXITED(status)) {
      const int exitCode = WEXITSTATUS(status);
      result.code = libraryCodeOfExit(exitCode);
      bool whole = exitCode == kCaptureExitDone;
      for (const std::string& output : result.outputs) whole = whole && fs::exists(output);
      result.outcome = whole ? "done" : stopSignal_ != 0 ? "stopped" : "failed";
      if (!whole) result.error = !error.empty() ? error : "exit code " + std::to_string(exitCode);
      if (exitCode == kCaptureExitDone && !whole) {
        result.code = -1;
        result.error = "no panorama was written";
      }
    } else {
      result.code = -1;
      result.signal = WTERMSIG(status);
      result.outcome = stopSignal_ != 0 ? "stopped" : "crashed";
      result.error =
          "signal " + std::to_string(result.signal) + " (" + strsignal(result.signal) + ")";
      if (!error.empty()) result.error += "; error line: " + error;
    }
    if (!result.done()) removeLeftovers(record, pid);
    if (!capture.workDir.empty()) {
      std::error_code ignored;
      fs::remove_all(capture.workDir, ignored);
      fs::remove(fs::path(capture.workDir).parent_path(), ignored);  // .work, once empty
    }
    result.finished = utcTimestamp();
    appendStatus(settings_.statusPath, result);
    progress_.finished(result);
    results_.push_back(std::move(result));
  }

  const BatchSettings& settings_;
  BatchProgress& progress_;
  std::map<pid_t, RunningCapture> running_;
  std::vector<CaptureResult> results_;
  int stopSignal_ = 0;
};

}  // namespace

BatchRun runCaptures(const std::vector<CaptureRecord>& captures, const BatchSettings& settings,
                     BatchProgress& progress) {
  return CaptureRunner(settings, progress).run(captures);
}

}  // namespace velmora::tool
