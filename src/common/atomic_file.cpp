#include "common/atomic_file.h"

#include <atomic>
#include <cstdio>

#ifdef _WIN32
#include <process.h>
#include <windows.h>
#define velmora_getpid _getpid
#else
#include <unistd.h>
#define velmora_getpid getpid
#endif

namespace velmora {

std::string temporarySiblingOf(const std::string& path) {
  static std::atomic<unsigned> writes{0};
  const auto slash = path.find_last_of("/\\");
  const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  return directory + ".velmora-" + std::to_string(velmora_getpid()) + "-" +
         std::to_string(writes.fetch_add(1)) + "-" + name;
}

bool commitTemporaryFile(const std::string& temporary, const std::string& path, bool written) {
  if (written) {
#ifdef _WIN32
    // Replaces path in one step; when it fails the old file stays.
    written = MoveFileExA(temporary.c_str(), path.c_str(),
                          MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
#else
    written = std::rename(temporary.c_str(), path.c_str()) == 0;
#endif
  }
  if (!written) std::remove(temporary.c_str());
  return written;
}

bool writeFileAtomically(const std::string& path, const void* data, size_t size) {
  const std::string temporary = temporarySiblingOf(path);
  bool written = false;
  if (std::FILE* file = std::fopen(temporary.c_str(), "wb")) {
    written = std::fwrite(data, 1, size, file) == size;
    written = std::fclose(file) == 0 && written;
  }
  return commitTemporaryFile(temporary, path, written);
}

}  // namespace velmora
