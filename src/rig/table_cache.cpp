#include "rig/table_cache.h"

#include <atomic>
#include <cstdio>
#include <memory>

#include "api/status.h"

#ifdef _WIN32
#include <process.h>
#define velmora_getpid _getpid
#else
#include <unistd.h>
#define velmora_getpid getpid
#endif

namespace velmora {

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

static_assert(sizeof(cv::Vec2f) == 8, "a table record is two 32-bit floats");

size_t tableBytes(const CameraGeometry& geometry) {
  return size_t{8} * geometry.outWidth * geometry.outHeight;
}

}  // namespace

bool loadTable(CameraModel& model, const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) return false;
  const CameraGeometry& geometry = model.geometry();
  cv::Mat table(static_cast<int>(geometry.outHeight), static_cast<int>(geometry.outWidth),
                CV_32FC2);
  const size_t bytes = tableBytes(geometry);
  if (std::fread(table.data, 1, bytes, file.get()) != bytes) return false;
  model.setTable(std::move(table));
  return true;
}

void writeTable(const CameraModel& model, const std::string& path) {
  const cv::Mat& table = model.table();
  // Unique per process and call, so two writers of one cache never share a temporary file.
  static std::atomic<unsigned> writes{0};
  const std::string temporary =
      path + ".part" + std::to_string(velmora_getpid()) + "." + std::to_string(writes.fetch_add(1));
  bool written = false;
  {
    File file(std::fopen(temporary.c_str(), "wb"));
    if (file) {
      const size_t bytes = tableBytes(model.geometry());
      written = table.isContinuous() && std::fwrite(table.data, 1, bytes, file.get()) == bytes;
      written = (std::fclose(file.release()) == 0) && written;
    }
  }
  if (written) {
#ifdef _WIN32
    std::remove(path.c_str());
#endif
    written = std::rename(temporary.c_str(), path.c_str()) == 0;
  }
  if (!written) {
    std::remove(temporary.c_str());
    throw Failure("Write table: " + path + " error.");
  }
}

void buildTable(CameraModel& model, const std::string& path) {
  model.computeTable();
  writeTable(model, path);
}

void ensureTable(CameraModel& model, const std::string& path) {
  if (!loadTable(model, path)) buildTable(model, path);
}

}  // namespace velmora
