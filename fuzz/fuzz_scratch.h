// What the fuzz programs share: a private scratch folder for the files the library reads, and a
// silenced console (the library reports every refused input with a line, millions of times).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace velmora::fuzzing {

// A folder of this process below the system's temporary directory, made on first use and removed
// with everything in it when the process exits.
const std::string& scratchFolder();

// scratchFolder() + "/" + name.
std::string scratchFile(const std::string& name);

// Replaces the file at path with the given bytes.
void writeBytes(const std::string& path, const uint8_t* data, size_t size);

// Sends std::cout and std::cerr to nowhere for the rest of the process.
void silenceConsole();

}  // namespace velmora::fuzzing
