// The external programs some library calls start, checked before a long call so that a missing
// one is reported up front instead of after minutes of stitching.
#pragma once

#include <string>

namespace velmora::tool {

// Whether the library would find `name` when it starts it as a command's first word: an
// executable file of that name in the working directory, or one in a folder of PATH.
bool programAvailable(const std::string& name);

// Throws std::runtime_error naming what is missing when `name` is not available (see above);
// `purpose` says what needs it ("the video stitch runs ...").
void requireProgram(const std::string& name, const std::string& purpose);

// The colour step runs isp.bat and reads its profiles from ./asset/, both relative to the working
// directory. Throws std::runtime_error explaining the set-up (share/isp/ in the project) when the
// script cannot be found or ./asset/ is missing.
void requireColourStepSetup();

}  // namespace velmora::tool
