#include "rig/table_cache.h"

#include <cstdio>
#include <memory>

#include "common/atomic_file.h"
#include "common/status.h"
#include "common/zeroed_mat.h"

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

// Reads the file at path into a table of the model's grid that starts out all unseen (0, 0), up
// to the grid's size. Returns false when the file cannot be opened, or when `whole` and it holds
// fewer bytes than the grid needs; the model keeps its table then.
bool readTableFile(CameraModel& model, const std::string& path, bool whole) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) return false;
  const CameraGeometry& geometry = model.geometry();
  cv::Mat table = zeroedMat(static_cast<int>(geometry.outHeight),
                            static_cast<int>(geometry.outWidth), CV_32FC2);
  const size_t bytes = tableBytes(geometry);
  if (std::fread(table.data, 1, bytes, file.get()) != bytes && whole) return false;
  model.setTable(std::move(table));
  return true;
}

}  // namespace

bool loadTable(CameraModel& model, const std::string& path) {
  return readTableFile(model, path, true);
}

bool loadTableAsFound(CameraModel& model, const std::string& path) {
  return readTableFile(model, path, false);
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

void ensureTableKeepingFile(CameraModel& model, const std::string& path) {
  if (!loadTableAsFound(model, path)) buildTable(model, path);
}

}  // namespace velmora
