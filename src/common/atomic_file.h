// Files that appear whole or not at all: the bytes go to a hidden temporary file beside the
// destination, which is renamed into place only once it is complete. A crash or a failed write
// never leaves a truncated file under the destination's name.
#pragma once

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

}  // namespace velmora
