#include "common/atomic_file.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>

#ifdef _WIN32
#include <process.h>
#include <windows.h>
#define velmora_getpid _getpid
#else
#include <unistd.h>
#define velmora_getpid getpid
#endif

namespace velmora {

namespace {

constexpr char kTemporaryPrefix[] = ".velmora-";

// Whether `name` is temporarySiblingOf's name for a file called `target`:
// ".velmora-<digits>-<digits>-<target>".
bool isTemporaryNameOf(const std::string& name, const std::string& target) {
  const std::string prefix = kTemporaryPrefix;
  if (name.size() <= prefix.size() + target.size() + 4 || name.compare(0, prefix.size(), prefix) ||
      name.compare(name.size() - target.size() - 1, std::string::npos, "-" + target)) {
    return false;
  }
  const std::string numbers =
      name.substr(prefix.size(), name.size() - prefix.size() - target.size() - 1);
  const auto dash = numbers.find('-');
  const auto digits = [](const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  };
  return dash != std::string::npos && digits(numbers.substr(0, dash)) &&
         digits(numbers.substr(dash + 1));
}

}  // namespace

std::string temporarySiblingOf(const std::string& path) {
  static std::atomic<unsigned> writes{0};
  const auto slash = path.find_last_of("/\\");
  const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  return directory + kTemporaryPrefix + std::to_string(velmora_getpid()) + "-" +
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

void removeAbandonedTemporariesOf(const std::string& path) {
  namespace fs = std::filesystem;
  const fs::path target(path);
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  const auto cutoff = fs::file_time_type::clock::now() - kAbandonedAfter;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!isTemporaryNameOf(entry->path().filename().string(), target.filename().string())) {
      continue;
    }
    std::error_code unreadable;
    const auto modified = entry->last_write_time(unreadable);
    if (!unreadable && entry->is_regular_file(unreadable) && modified < cutoff) {
      fs::remove(entry->path(), unreadable);
    }
  }
}

}  // namespace velmora
