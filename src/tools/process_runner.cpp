#include "tools/process_runner.h"

#include <cstdio>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <errno.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;
#endif

namespace velmora {

#ifdef _WIN32

int runCommand(const std::string& command) {
  // Queried as the host expects of the runner; the child inherits the streams by itself.
  GetStdHandle(STD_OUTPUT_HANDLE);

  // Process creation may write into the command line, so it gets a buffer of its own.
  std::vector<char> line(command.begin(), command.end());
  line.push_back('\0');

  STARTUPINFOA startup;
  ZeroMemory(&startup, sizeof(startup));
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process;
  ZeroMemory(&process, sizeof(process));

  if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, ".",
                      &startup, &process)) {
    return kCommandNotStarted;
  }
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD exitCode = 0;
  GetExitCodeProcess(process.hProcess, &exitCode);
  CloseHandle(process.hProcess);
  // Only the process handle is closed: the thread handle stays open, one per call, as the host
  // integration has always done.
  return static_cast<int>(exitCode);
}

#else

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

bool isExecutableFile(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

// Owns a posix_spawnattr_t for the length of one spawn.
class SpawnAttributes {
 public:
  SpawnAttributes() { ready_ = posix_spawnattr_init(&attributes_) == 0; }
  ~SpawnAttributes() {
    if (ready_) posix_spawnattr_destroy(&attributes_);
  }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  // The child starts with no signal blocked, whatever the calling thread has blocked.
  bool unblockAllSignals() {
    if (!ready_) return false;
    sigset_t none;
    sigemptyset(&none);
    return posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
           posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK) == 0;
  }

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
  bool ready_ = false;
};

// Waits for the child, retrying when a signal interrupts the wait.
int waitForExit(pid_t child) {
  int status = 0;
  pid_t ended;
  do {
    ended = waitpid(child, &status, 0);
  } while (ended == -1 && errno == EINTR);
  if (ended == -1) return kCommandNotStarted;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return kCommandNotStarted;
}

}  // namespace

std::string preferCurrentDirectory(const std::string& command) {
  size_t begin = 0;
  while (begin < command.size() && isBlank(command[begin])) ++begin;
  size_t end = begin;
  while (end < command.size() && !isBlank(command[end])) ++end;
  const std::string firstWord = command.substr(begin, end - begin);
  if (firstWord.empty() || firstWord.find('/') != std::string::npos) return command;
  if (!isExecutableFile(firstWord)) return command;
  return command.substr(0, begin) + "./" + command.substr(begin);
}

int runCommandWith(const std::string& shell, const std::string& command) {
  std::string line = preferCurrentDirectory(command);
  std::string shellName = shell;
  std::string option = "-c";
  char* arguments[] = {shellName.data(), option.data(), line.data(), nullptr};

  SpawnAttributes attributes;
  if (!attributes.unblockAllSignals()) return kCommandNotStarted;

  // Whatever the host has buffered goes out before the child writes to the same streams.
  std::fflush(nullptr);
  pid_t child = 0;
  if (posix_spawn(&child, shell.c_str(), nullptr, attributes.get(), arguments, environ) != 0) {
    return kCommandNotStarted;
  }
  return waitForExit(child);
}

int runCommand(const std::string& command) {
  return runCommandWith("/bin/sh", command);
}

#endif

}  // namespace velmora
