// Files that appear whole or not at all: the bytes go to a hidden temporary file beside the
// destination, which is renamed into place only once it is complete. A crash or a failed write
// never leaves a truncated file under the destination's name; a process killed while writing
// leaves its hidden temporary ".velmora-<process id>-<n>-<name>", which nothing reads.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace velmora {

// A name for a temporary file in the destination's directory, unique per process and call, that
// keeps the destination's file name (and so its extension) at its end.
std::string temporarySiblingOf(const std::string& path);

// When `written`, renames temporary onto path; otherwise, or when the rename fails, removes the
// temporary file. Returns true when path now holds the new file.
bool commitTemporaryFile(const std::string& temporary, const std::string& path, bool written);

// Writes `size` bytes to path through a temporary sibling. Returns false, leaving path as it
// was, when any step fails.
bool writeFileAtomically(const std::string& path, const void* data, size_t size);

// A temporary untouched for this long belongs to a writer that is gone: a live one writes its
// bytes in one go and renames the file at once.
inline constexpr std::chrono::hours kAbandonedAfter{1};

// Removes the temporaries that temporarySiblingOf named for path and that have not been modified
// for kAbandonedAfter. Files of other names, and temporaries that may still be in use, are left.
void removeAbandonedTemporariesOf(const std::string& path);

}  // namespace velmora
