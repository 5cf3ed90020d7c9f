#include "fuzz_scratch.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <streambuf>

namespace velmora::fuzzing {

namespace {

// A stream buffer that accepts and drops everything.
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

void removeScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(scratchFolder(), ignored);
}

}  // namespace

const std::string& scratchFolder() {
  // Never destroyed: the exit handler that removes the folder runs after static destructors.
  static const std::string* folder = [] {
    auto* made =
        new std::string((std::filesystem::temp_directory_path() / "velmora-fuzz-XXXXXX").string());
    if (mkdtemp(made->data()) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    std::atexit(removeScratchFolder);
    return made;
  }();
  return *folder;
}

std::string scratchFile(const std::string& name) {
  return scratchFolder() + "/" + name;
}

void writeBytes(const std::string& path, const uint8_t* data, size_t size) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    std::perror(path.c_str());
    std::abort();
  }
  if (size > 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);
}

void silenceConsole() {
  static NullBuffer nowhere;
  std::cout.rdbuf(&nowhere);
  std::cerr.rdbuf(&nowhere);
}

}  // namespace velmora::fuzzing
