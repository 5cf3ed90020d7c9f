#include "velmora/batch_manifest.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// A fault in one field of a record; readManifest puts the line in front.
struct FieldError {
  std::string field;
  std::string reason;
};

[[noreturn]] void refuse(const std::string& field, const std::string& reason) {
  throw FieldError{field, reason};
}

const std::set<std::string> kKnownFields = {"name",      "operation", "up",    "down", "output",
                                            "shot_size", "grid",      "gains", "isp",  "rects"};

std::string absoluteFrom(const std::string& baseDir, const std::string& path) {
  return fs::absolute(fs::path(baseDir) / path).lexically_normal().string();
}

std::string stringField(const json& object, const std::string& field, bool required) {
  const auto it = object.find(field);
  if (it == object.end()) {
    if (required) refuse(field, "missing");
    return "";
  }
  if (!it->is_string() || it->get<std::string>().empty()) refuse(field, "must be a non-empty text");
  return it->get<std::string>();
}

PixelSize sizeField(const json& object, const std::string& field, PixelSize fallback) {
  const std::string text = stringField(object, field, false);
  if (text.empty()) return fallback;
  try {
    return parsePixelSize(text);
  } catch (const CLI::ValidationError& error) {
    refuse(field, error.what());
  }
}

Gains gainsField(const json& object) {
  const auto it = object.find("gains");
  if (it == object.end()) return Gains{};
  if (!it->is_array() || it->size() != 3)
    refuse("gains", "must be three numbers [red, green, blue]");
  float values[3];
  for (size_t k = 0; k < 3; ++k) {
    if (!(*it)[k].is_number() || !((*it)[k].get<float>() > 0.0f))
      refuse("gains", "every gain must be a positive number");
    values[k] = (*it)[k].get<float>();
  }
  return Gains{values[0], values[1], values[2]};
}

// The camera's file name chooses it in the library: "Up." for the upper, a leading 'D' for the
// lower camera.
CameraShots cameraField(const json& object, const std::string& field, const std::string& baseDir,
                        const std::vector<size_t>& shotCounts) {
  const auto it = object.find(field);
  if (it == object.end()) return CameraShots{};
  if (!it->is_object()) refuse(field, "must be an object {\"config\": ..., \"shots\": [...]}");
  for (const auto& item : it->items()) {
    if (item.key() != "config" && item.key() != "shots")
      refuse(field + "." + item.key(), "unknown field");
  }
  CameraShots camera;
  camera.config = absoluteFrom(baseDir, stringField(*it, "config", true));
  const std::string configName = fs::path(camera.config).filename().string();
  const bool upper = field == "up";
  if (upper ? configName.rfind("Up.", 0) != 0 : configName.rfind('D', 0) != 0) {
    refuse(field + ".config", "the file name must begin with " +
                                  std::string(upper ? "'Up.'" : "'D'") +
                                  ": the library chooses the camera by it");
  }
  if (!fs::is_regular_file(camera.config)) refuse(field + ".config", "no file " + camera.config);
  const auto shots = it->find("shots");
  if (shots == it->end()) refuse(field + ".shots", "missing");
  if (!shots->is_array()) refuse(field + ".shots", "must be a list of shot paths");
  for (const json& shot : *shots) {
    if (!shot.is_string() || shot.get<std::string>().empty())
      refuse(field + ".shots", "every shot must be a non-empty path");
    camera.shots.push_back(absoluteFrom(baseDir, shot.get<std::string>()));
  }
  bool countFits = false;
  std::string counts;
  for (size_t count : shotCounts) {
    countFits = countFits || camera.shots.size() == count;
    counts += (counts.empty() ? "" : " or ") + std::to_string(count);
  }
  if (!countFits) {
    refuse(field + ".shots",
           "holds " + std::to_string(camera.shots.size()) + " shots, not " + counts);
  }
  return camera;
}

std::vector<PixelRect> rectanglesField(const json& object) {
  const auto it = object.find("rects");
  if (it == object.end()) refuse("rects", "missing: a repair needs at least one rectangle");
  if (!it->is_array() || it->empty()) refuse("rects", "must be a non-empty list of [x, y, w, h]");
  std::vector<PixelRect> rectangles;
  for (const json& rect : *it) {
    if (!rect.is_array() || rect.size() != 4 ||
        !std::all_of(rect.begin(), rect.end(), [](const json& v) { return v.is_number_integer(); }))
      refuse("rects", "every rectangle must be four integers [x, y, width, height]");
    const PixelRect r{rect[0].get<int>(), rect[1].get<int>(), rect[2].get<int>(),
                      rect[3].get<int>()};
    if (r.width <= 0 || r.height <= 0) refuse("rects", "a rectangle needs a positive size");
    rectangles.push_back(r);
  }
  return rectangles;
}

bool validName(const std::string& name) {
  return !name.empty() && name[0] != '.' && std::all_of(name.begin(), name.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-';
  });
}

// The numbers of a configuration text (every second word: labels are free).
std::vector<std::string> calibrationNumbers(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> numbers;
  std::string word;
  for (size_t k = 0; in >> word; ++k) {
    if (k % 2 == 1) numbers.push_back(word);
  }
  return numbers;
}

// What one camera's projection table depends on; captures sharing a table folder must agree.
struct TableKey {
  std::vector<std::string> calibration;
  int shotWidth, shotHeight, gridWidth, gridHeight;
  bool operator==(const TableKey& other) const {
    return calibration == other.calibration && shotWidth == other.shotWidth &&
           shotHeight == other.shotHeight && gridWidth == other.gridWidth &&
           gridHeight == other.gridHeight;
  }
};

std::string lineContext(const std::string& path, int line) {
  return path + ":" + std::to_string(line) + ": ";
}

}  // namespace

const char* operationName(BatchOperation operation) {
  switch (operation) {
    case BatchOperation::Stitch:
      return "stitch";
    case BatchOperation::Hdr:
      return "hdr";
    case BatchOperation::Repair:
      return "repair";
  }
  return "stitch";
}

bool CaptureRecord::needsColourStep() const {
  return operation == BatchOperation::Repair || (operation == BatchOperation::Hdr && colourStep);
}

std::vector<std::string> CaptureRecord::outputs() const {
  if (operation != BatchOperation::Stitch || up.config.empty() || down.config.empty())
    return {output};
  const fs::path path(output);
  const std::string stem = (path.parent_path() / path.stem()).string();
  return {stem + "_Up" + path.extension().string(), stem + "_Down" + path.extension().string()};
}

CaptureRecord recordFromJson(const json& object, const std::string& baseDir) {
  try {
    if (!object.is_object()) refuse("", "a record must be a JSON object");
    for (const auto& item : object.items()) {
      if (kKnownFields.count(item.key()) == 0) refuse(item.key(), "unknown field");
    }
    CaptureRecord record;
    record.name = stringField(object, "name", true);
    if (!validName(record.name)) {
      refuse("name",
             "'" + record.name +
                 "' may hold only letters, digits, '.', '_' and '-' and not begin with '.'");
    }
    const std::string operation = stringField(object, "operation", true);
    if (operation == "stitch") {
      record.operation = BatchOperation::Stitch;
    } else if (operation == "hdr") {
      record.operation = BatchOperation::Hdr;
    } else if (operation == "repair") {
      record.operation = BatchOperation::Repair;
    } else {
      refuse("operation", "'" + operation + "' is not stitch, hdr or repair");
    }
    const bool stitch = record.operation == BatchOperation::Stitch;
    const std::vector<size_t> upCounts = stitch ? std::vector<size_t>{6}
                                         : record.operation == BatchOperation::Hdr
                                             ? std::vector<size_t>{12, 18}
                                             : std::vector<size_t>{18};
    record.up = cameraField(object, "up", baseDir, upCounts);
    if (!stitch && object.contains("down"))
      refuse("down", "only a single stitch takes the lower camera");
    record.down = cameraField(object, "down", baseDir, {6});
    if (record.up.config.empty() && record.down.config.empty()) {
      refuse("up", stitch ? "missing: a stitch needs \"up\", \"down\" or both" : "missing");
    }
    record.output = stringField(object, "output", false);
    if (record.output.empty()) record.output = record.name + ".jpg";
    if (fs::path(record.output).is_absolute() ||
        fs::path(record.output).lexically_normal().string().rfind("..", 0) == 0) {
      refuse("output", "must be a file name inside the output folder");
    }
    if (record.operation == BatchOperation::Hdr && object.contains("isp")) {
      if (!object["isp"].is_boolean()) refuse("isp", "must be true or false");
      record.colourStep = object["isp"].get<bool>();
    } else if (object.contains("isp")) {
      refuse("isp", "only an HDR stitch takes it (a repair always runs the colour step)");
    }
    // Without the colour step the HDR stitch leaves its fused panorama at <given path>.jpg.
    if (record.operation == BatchOperation::Hdr && !record.colourStep &&
        fs::path(record.output).extension() != ".jpg") {
      refuse("output", "an HDR stitch without the colour step writes a JPEG: end it in .jpg");
    }
    record.shotSize = sizeField(object, "shot_size", record.shotSize);
    record.grid = sizeField(object, "grid", record.grid);
    record.gains = gainsField(object);
    if (record.operation == BatchOperation::Repair) {
      record.rectangles = rectanglesField(object);
    } else if (object.contains("rects")) {
      refuse("rects", "only a repair takes rectangles");
    }
    return record;
  } catch (const FieldError& error) {
    throw ManifestError(error.field.empty() ? error.reason
                                            : "field \"" + error.field + "\": " + error.reason);
  } catch (const json::exception& error) {
    throw ManifestError(error.what());
  }
}

json recordToJson(const CaptureRecord& record) {
  json object = {
      {"name", record.name},
      {"operation", operationName(record.operation)},
      {"output", record.output},
      {"shot_size",
       std::to_string(record.shotSize.width) + "x" + std::to_string(record.shotSize.height)},
      {"grid", std::to_string(record.grid.width) + "x" + std::to_string(record.grid.height)},
      {"gains", {record.gains.red, record.gains.green, record.gains.blue}}};
  if (!record.up.config.empty())
    object["up"] = {{"config", record.up.config}, {"shots", record.up.shots}};
  if (!record.down.config.empty())
    object["down"] = {{"config", record.down.config}, {"shots", record.down.shots}};
  if (record.operation == BatchOperation::Hdr) object["isp"] = record.colourStep;
  if (record.operation == BatchOperation::Repair) {
    object["rects"] = json::array();
    for (const PixelRect& r : record.rectangles)
      object["rects"].push_back({r.x, r.y, r.width, r.height});
  }
  return object;
}

std::vector<CaptureRecord> readManifest(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw ManifestError("Cannot read the manifest " + path + ".");
  const std::string baseDir = fs::absolute(path).parent_path().string();
  std::vector<CaptureRecord> records;
  std::map<std::string, int> names, outputs;
  std::map<std::string, std::pair<TableKey, int>> tables;  // camera -> key, first line
  std::string text;
  for (int line = 1; std::getline(in, text); ++line) {
    if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
    const std::string at = lineContext(path, line);
    json object;
    try {
      object = json::parse(text);
    } catch (const json::parse_error& error) {
      throw ManifestError(at + "not a JSON object: " + error.what());
    }
    CaptureRecord record;
    try {
      record = recordFromJson(object, baseDir);
    } catch (const ManifestError& error) {
      throw ManifestError(at + error.what());
    }
    record.line = line;
    if (!names.emplace(record.name, line).second) {
      throw ManifestError(at + "field \"name\": '" + record.name + "' is already used on line " +
                          std::to_string(names[record.name]));
    }
    for (const std::string& output : record.outputs()) {
      const std::string normal = fs::path(output).lexically_normal().string();
      if (!outputs.emplace(normal, line).second) {
        throw ManifestError(at + "field \"output\": " + normal + " is already written by line " +
                            std::to_string(outputs[normal]));
      }
    }
    for (const auto* camera : {&record.up, &record.down}) {
      if (camera->config.empty()) continue;
      const std::string field = camera == &record.up ? "up" : "down";
      const TableKey key{calibrationNumbers(camera->config), record.shotSize.width,
                         record.shotSize.height, record.grid.width, record.grid.height};
      const auto known = tables.emplace(field, std::make_pair(key, line)).first->second;
      if (!(known.first == key)) {
        throw ManifestError(
            at + "field \"" + field + ".config\": its calibration, shot size or grid differ from " +
            "line " + std::to_string(known.second) +
            "'s; both would share one projection table: run them as separate batches");
      }
    }
    records.push_back(std::move(record));
  }
  if (records.empty()) throw ManifestError(path + ": the manifest holds no capture.");
  return records;
}

}  // namespace velmora::tool
