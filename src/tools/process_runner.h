// Running an external program as a child process and waiting for it: the only way the library
// starts other programs (the colour script, the frame grabber, the video stitcher).
#pragma once

#include <string>

namespace velmora {

// Exit code reported when the child could not be started at all.
inline constexpr int kCommandNotStarted = -1;

// Runs `command`, a whole command line with the program name first, and blocks until the child
// has ended (no time limit). The child starts in the caller's current directory with the caller's
// environment and standard streams.
//
// POSIX: the line runs through "/bin/sh -c". When its first word holds no "/" and names an
// executable regular file in the current directory, that file is run (as Windows process
// creation would find it there first), so "isp.bat a b" starts ./isp.bat. Returns the child's
// exit code; a child ended by signal n reads as 128 + n, as a shell reports it; -1
// (kCommandNotStarted) when no child could be created.
//
// Windows: CreateProcessA with no window of its own; returns the child's exit code, or -1 when
// the process could not be created.
//
// Never throws for a failing child; the callers ignore the result and judge the outcome by the
// files the child leaves.
int runCommand(const std::string& command);

#ifndef _WIN32
// runCommand with another command interpreter in place of "/bin/sh" (for systems and tests
// where the interpreter lives elsewhere or is missing): `shell` is started as `shell -c line`.
int runCommandWith(const std::string& shell, const std::string& command);

// The command line as it is handed to the interpreter: the first word is prefixed with "./"
// when it holds no "/" and names an executable regular file in the current directory.
std::string preferCurrentDirectory(const std::string& command);
#endif

}  // namespace velmora
