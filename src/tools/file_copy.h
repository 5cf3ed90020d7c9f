// Byte-for-byte file copy (puts colour-processing profiles where the colour script reads them).
#pragma once

#include <string>

namespace velmora {

// Copies the file at `source` to `destination`, replacing an existing destination entirely.
// Returns 1 when the copy was made and 0 when it failed:
//   - a source that cannot be opened prints "Error 1: Fail to open the source file." on standard
//     output, and nothing is created;
//   - a destination that cannot be created (missing folder, read-only file) prints
//     "Error 2: Fail to create the new file." on standard output; the source is untouched.
// Never throws for these failures. A zero-byte source gives a zero-byte destination.
int copyFile(std::string source, std::string destination);

}  // namespace velmora
