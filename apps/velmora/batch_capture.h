// One capture of a batch runs in a process of its own: the tool itself, started again with the
// hidden subcommand `batch-capture` and the capture's record. Its exit code carries the
// library's status code to the batch.
#pragma once

#include <string>

#include "velmora/batch_manifest.h"

namespace velmora::tool {

inline constexpr char kCaptureSubcommand[] = "batch-capture";

// Exit codes of a capture's process. Anything else that the tool itself refused (a missing
// colour step set-up, an unwritable folder) exits with 1, as every subcommand does.
inline constexpr int kCaptureExitDone = 0;
inline constexpr int kCaptureExitFailed = 3;       // the library's status -1
inline constexpr int kCaptureExitOutOfMemory = 4;  // the library's status -2

// The library's status code behind a capture process's exit code (-1 for every failure that is
// not the library's -2).
int libraryCodeOfExit(int exitCode);

// Where the library writes a capture's panorama: the output itself, except that an HDR stitch
// without the colour step is given the output without its ".jpg" (it appends one).
std::string libraryOutputPath(const CaptureRecord& record, const std::string& outputPath);

}  // namespace velmora::tool
