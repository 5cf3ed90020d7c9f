// The one place where paths and command lines take the platform's directory separator.
#pragma once

#include <string>

namespace velmora {

// The directory separator that external commands and file deletions use on this platform.
#ifdef _WIN32
inline constexpr char kNativeSeparator = '\\';
#else
inline constexpr char kNativeSeparator = '/';
#endif

// Returns `text` with every "/" replaced by `separator`. With the default separator this turns
// "D:/v/a.mp4" into "D:\v\a.mp4" on Windows and leaves the text as it is on POSIX. Every other
// character, back slashes included, is kept.
std::string toNativeSeparators(std::string text, char separator = kNativeSeparator);

}  // namespace velmora
