// Runs the built velmora tool in a shell as a user runs it and checks its exit code and messages.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace velmora::testing {

struct ToolRun {
  int exitCode = -1;
  std::string out;
  std::string err;
  bool said(const std::string& text) const { return (out + err).find(text) != std::string::npos; }
};

// Runs "velmora <arguments>" through /bin/sh after the shell text `setUp` ("cd x && "), with both
// streams captured into files in `dir`.
inline ToolRun runTool(const TempDir& dir, const std::string& arguments,
                       const std::string& setUp = "") {
  const int status = std::system((setUp + VELMORA_TOOL + " " + arguments + " >" +
                                  dir.file("stdout.txt") + " 2>" + dir.file("stderr.txt"))
                                     .c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(dir.file("stdout.txt")),
          readFile(dir.file("stderr.txt"))};
}

// The run ended with `exitCode` and said each of `texts` on one of its streams.
inline void expectRun(const ToolRun& run, int exitCode, const std::vector<std::string>& texts) {
  EXPECT_EQ(run.exitCode, exitCode) << run.out << run.err;
  for (const auto& text : texts)
    EXPECT_TRUE(run.said(text)) << text << " in:\n" << run.out << run.err;
}

}  // namespace velmora::testing
