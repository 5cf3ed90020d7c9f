#include "rig/table_cache.h"

#include <cstdio>
#include <memory>

#include "api/status.h"
#include "common/atomic_file.h"

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
  if (!table.isContinuous() ||
      !writeFileAtomically(path, table.data, tableBytes(model.geometry()))) {
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
