#include "tools/process_runner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "support/scoped_process_state.h"
#include "support/test_support.h"

namespace velmora {
namespace {

using testing::readFile;
using testing::ScopedWorkingDirectory;
using testing::TempDir;
using testing::writeScript;
using testing::writeTextFile;

TEST(ProcessRunner, ReturnsTheExitCodeAsTheShellReportsItAndSharesTheOutput) {
  const std::pair<const char*, int> cases[] = {{"true", 0},
                                               {"exit 3", 3},
                                               {"sh -c 'exit 200'", 200},
                                               {"velmora-no-such-program-anywhere", 127},
                                               {"kill -TERM $$", 128 + 15}};
  for (const auto& [command, code] : cases) EXPECT_EQ(runCommand(command), code) << command;
  // The child writes to the caller's output. (That it runs in the caller's directory and
  // environment, and is waited for, every test of the colour step and the video stitch shows.)
  ::testing::internal::CaptureStdout();  // redirects the process's file descriptor 1
  EXPECT_EQ(runCommand("echo from the child"), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "from the child\n");
}

TEST(ProcessRunner, ConcurrentCallersEachGetTheirOwnChildsCode) {
  int slow = -100, fast = -100;
  std::thread first([&] { slow = runCommand("sleep 0.2; exit 4"); });
  std::thread second([&] { fast = runCommand("exit 5"); });
  first.join();
  second.join();
  EXPECT_TRUE(slow == 4 && fast == 5) << slow << " " << fast;
}

TEST(ProcessRunner, ExecutableInTheCurrentDirectoryIsFoundFirst) {
  // Named after programs also on the search path: the current directory wins, as it does for
  // Windows process creation, but only for an executable file. (The colour step's isp.bat is
  // found this way in every test of the colour step.)
  TempDir dir;
  writeScript(dir.file("date"), "exit 7\n");
  writeTextFile(dir.file("notes"), "exit 0\n");
  for (const char* folder : {"folder", "sub"}) std::filesystem::create_directory(dir.file(folder));
  writeScript(dir.file("sub/date"), "exit 0\n");
  ScopedWorkingDirectory inside(dir.path());
  EXPECT_EQ(runCommand("date one two"), 7);
  std::vector<std::string> lines;  // only the first two name an executable file right here
  for (const char* line :
       {"date a b", "  date", "notes a", "folder a", "sub/date a", "missing a", ""})
    lines.push_back(preferCurrentDirectory(line));
  EXPECT_EQ(lines, (std::vector<std::string>{"./date a b", "  ./date", "notes a", "folder a",
                                             "sub/date a", "missing a", ""}));
}

}  // namespace
}  // namespace velmora
