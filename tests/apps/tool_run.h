// Runs the built velmora tool as a user runs it, in a shell, and collects what it said.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "support/test_support.h"

namespace velmora::testing {

struct ToolRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// Runs "velmora <arguments>" (a shell-quoted text) through /bin/sh. `setUp`, when given, is
// shell text run before it in the same shell (e.g. "cd /some/dir && PATH=/x:$PATH "). Both
// streams are captured into files in `dir`.
inline ToolRun runTool(const TempDir& dir, const std::string& arguments,
                       const std::string& setUp = "") {
  const std::string outPath = dir.file("stdout.txt");
  const std::string errPath = dir.file("stderr.txt");
  const std::string command =
      setUp + std::string(VELMORA_TOOL) + " " + arguments + " >" + outPath + " 2>" + errPath;
  const int status = std::system(command.c_str());
  ToolRun run;
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = readFile(outPath);
  run.err = readFile(errPath);
  return run;
}

}  // namespace velmora::testing
