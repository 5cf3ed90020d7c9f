#include "velmora/batch_tables.h"

#include <filesystem>
#include <iostream>
#include <set>

#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;

// A table holds two floats per panorama cell.
constexpr uintmax_t kTableBytesPerCell = 8;

}  // namespace

bool prepareTables(const std::vector<CaptureRecord>& captures, const std::string& tableDir) {
  std::set<std::string> prepared;
  for (const CaptureRecord& record : captures) {
    for (const auto& [camera, shots] : {std::pair{"Up", &record.up}, {"Down", &record.down}}) {
      if (shots->config.empty() || !prepared.insert(camera).second) continue;
      const fs::path table = fs::path(tableDir) / (std::string("table_") + camera + ".bin");
      std::error_code missing;
      const uintmax_t wanted = kTableBytesPerCell * record.grid.width * record.grid.height;
      if (fs::file_size(table, missing) == wanted && !missing) continue;
      StitchSession session;
      const int code = session.init(shots->config, tableDir, record.shotSize, record.grid);
      if (!reportStatus("batch", "Init of " + shots->config, code)) return false;
    }
  }
  return true;
}

}  // namespace velmora::tool
