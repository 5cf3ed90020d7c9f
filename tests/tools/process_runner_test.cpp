#include "tools/process_runner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "support/test_support.h"
#include "tools/scoped_process_state.h"

namespace velmora {
namespace {

using testing::readFile;
using testing::ScopedWorkingDirectory;
using testing::TempDir;
using testing::writeScript;
using testing::writeTextFile;

TEST(ProcessRunner, ReturnsTheExitCodeAsTheShellReportsIt) {
  const std::pair<const char*, int> cases[] = {{"true", 0},
                                               {"exit 3", 3},
                                               {"sh -c 'exit 200'", 200},
                                               {"velmora-no-such-program-anywhere", 127},
                                               {"kill -TERM $$", 128 + 15}};
  for (const auto& [command, code] : cases) EXPECT_EQ(runCommand(command), code) << command;
  EXPECT_EQ(runCommandWith("/nonexistent/velmora/sh", "true"), kCommandNotStarted);
  EXPECT_EQ(kCommandNotStarted, -1);
}

TEST(ProcessRunner, WaitsForTheChildInTheCallersDirectoryEnvironmentAndOutput) {
  TempDir dir;
  testing::ScopedEnvironmentVariable probe("VELMORA_RUNNER_PROBE", "inherited value");
  ScopedWorkingDirectory inside(dir.path());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(runCommand("sleep 0.3; pwd -P > where.txt"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
  EXPECT_EQ(readFile(dir.file("where.txt")),
            std::filesystem::canonical(dir.path()).string() + "\n");
  EXPECT_EQ(runCommand("test \"$VELMORA_RUNNER_PROBE\" = \"inherited value\""), 0);

  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  ASSERT_GE(saved, 0);
  const int file = open(dir.file("stdout.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(file, 0);
  dup2(file, STDOUT_FILENO);
  close(file);
  const int code = runCommand("echo from the child");
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(readFile(dir.file("stdout.txt")), "from the child\n");
}

TEST(ProcessRunner, ConcurrentCallersEachGetTheirOwnChildsCode) {
  int slow = -100;
  int fast = -100;
  std::thread first([&] { slow = runCommand("sleep 0.2; exit 4"); });
  std::thread second([&] { fast = runCommand("exit 5"); });
  first.join();
  second.join();
  EXPECT_EQ(slow, 4);
  EXPECT_EQ(fast, 5);
}

TEST(ProcessRunner, ExecutableInTheCurrentDirectoryIsFoundFirst) {
  // Named after programs also on the search path: the current directory wins, as it does for
  // Windows process creation, but only for an executable file.
  TempDir dir;
  writeScript(dir.file("date"), "echo \"$@\" > ran-here.txt\nexit 7\n");
  writeScript(dir.file("isp.bat"), "echo \"$1|$2\" > isp-ran.txt\n");
  writeTextFile(dir.file("true"), "exit 9\n");
  writeTextFile(dir.file("notes"), "exit 0\n");
  std::filesystem::create_directories(dir.file("folder"));
  std::filesystem::create_directories(dir.file("sub"));
  writeScript(dir.file("sub/date"), "exit 0\n");
  ScopedWorkingDirectory inside(dir.path());

  EXPECT_EQ(runCommand("date one two"), 7);
  EXPECT_EQ(readFile(dir.file("ran-here.txt")), "one two\n");
  EXPECT_EQ(runCommand("isp.bat isp_minion.pp3 out.jpg"), 0);
  EXPECT_EQ(readFile(dir.file("isp-ran.txt")), "isp_minion.pp3|out.jpg\n");
  EXPECT_EQ(runCommand("true"), 0);
  const std::pair<const char*, const char*> lines[] = {{"date a b", "./date a b"},
                                                       {"  date", "  ./date"},
                                                       {"notes a", "notes a"},
                                                       {"folder a", "folder a"},
                                                       {"sub/date a", "sub/date a"},
                                                       {"missing a", "missing a"},
                                                       {"", ""}};
  for (const auto& [line, expected] : lines) EXPECT_EQ(preferCurrentDirectory(line), expected);
}

}  // namespace
}  // namespace velmora
