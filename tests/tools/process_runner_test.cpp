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
using testing::ScopedEnvironmentVariable;
using testing::ScopedWorkingDirectory;
using testing::TempDir;
using testing::writeScript;
using testing::writeTextFile;

TEST(ProcessRunner, ReturnsTheChildsExitCode) {
  EXPECT_EQ(runCommand("true"), 0);
  EXPECT_EQ(runCommand("exit 3"), 3);
  EXPECT_EQ(runCommand("sh -c 'exit 200'"), 200);
  // The shell's own verdict for an unknown program is an exit code like any other.
  EXPECT_EQ(runCommand("velmora-no-such-program-anywhere"), 127);
}

TEST(ProcessRunner, ChildEndedBySignalReadsAsTheShellReportsIt) {
  EXPECT_EQ(runCommand("kill -TERM $$"), 128 + 15);
}

TEST(ProcessRunner, WaitsUntilTheChildHasEnded) {
  TempDir dir;
  const std::string marker = dir.file("marker");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(runCommand("sleep 0.3; echo finished > " + marker), 0);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, std::chrono::milliseconds(300));
  EXPECT_EQ(readFile(marker), "finished\n");
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

TEST(ProcessRunner, ProgramInTheCurrentDirectoryIsFoundFirst) {
  TempDir dir;
  // Named after a program that is also on the search path: the current directory wins, as it
  // does for Windows process creation.
  writeScript(dir.file("date"), "echo \"$@\" > ran-here.txt\nexit 7\n");
  writeScript(dir.file("isp.bat"), "echo \"$1|$2\" > isp-ran.txt\n");
  ScopedWorkingDirectory inside(dir.path());

  EXPECT_EQ(runCommand("date one two"), 7);
  EXPECT_EQ(readFile(dir.file("ran-here.txt")), "one two\n");
  EXPECT_EQ(runCommand("isp.bat isp_minion.pp3 out.jpg"), 0);
  EXPECT_EQ(readFile(dir.file("isp-ran.txt")), "isp_minion.pp3|out.jpg\n");
}

TEST(ProcessRunner, CurrentDirectoryLookupTakesOnlyExecutableFiles) {
  TempDir dir;
  writeScript(dir.file("tool"), "exit 0\n");
  writeTextFile(dir.file("notes"), "exit 0\n");
  std::filesystem::create_directory(dir.file("folder"));
  std::filesystem::create_directory(dir.file("sub"));
  writeScript(dir.file("sub/tool"), "exit 0\n");
  ScopedWorkingDirectory inside(dir.path());

  EXPECT_EQ(preferCurrentDirectory("tool a b"), "./tool a b");
  EXPECT_EQ(preferCurrentDirectory("  tool"), "  ./tool");
  EXPECT_EQ(preferCurrentDirectory("notes a"), "notes a");
  EXPECT_EQ(preferCurrentDirectory("folder a"), "folder a");
  EXPECT_EQ(preferCurrentDirectory("sub/tool a"), "sub/tool a");
  EXPECT_EQ(preferCurrentDirectory("missing a"), "missing a");
  EXPECT_EQ(preferCurrentDirectory(""), "");
  // A file that is not executable does not hide the program of the same name on the path.
  writeTextFile(dir.file("true"), "exit 9\n");
  EXPECT_EQ(runCommand("true"), 0);
}

TEST(ProcessRunner, ChildInheritsEnvironmentAndWorkingDirectory) {
  TempDir dir;
  ScopedEnvironmentVariable probe("VELMORA_RUNNER_PROBE", "inherited value");
  ScopedWorkingDirectory inside(dir.path());

  EXPECT_EQ(runCommand("test \"$VELMORA_RUNNER_PROBE\" = \"inherited value\""), 0);
  EXPECT_EQ(runCommand("pwd -P > where.txt"), 0);
  EXPECT_EQ(readFile(dir.file("where.txt")),
            std::filesystem::canonical(dir.path()).string() + "\n");
}

TEST(ProcessRunner, ChildWritesToTheCallersStandardOutput) {
  TempDir dir;
  const std::string captured = dir.file("stdout.txt");
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  ASSERT_GE(saved, 0);
  const int file = open(captured.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(file, 0);
  dup2(file, STDOUT_FILENO);
  close(file);
  const int code = runCommand("echo from the child");
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);

  EXPECT_EQ(code, 0);
  EXPECT_EQ(readFile(captured), "from the child\n");
}

TEST(ProcessRunner, MissingCommandInterpreterMeansNotStarted) {
  EXPECT_EQ(runCommandWith("/nonexistent/velmora/sh", "true"), kCommandNotStarted);
  EXPECT_EQ(kCommandNotStarted, -1);
}

}  // namespace
}  // namespace velmora
