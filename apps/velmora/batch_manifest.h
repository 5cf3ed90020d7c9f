// The batch manifest: one capture per line (JSON lines), each naming its operation, its shots,
// its camera configurations, its gains and its output. Read whole and checked before any work
// starts; a bad line is refused with its line number and the field at fault.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "velmora/tool_support.h"

namespace velmora::tool {

enum class BatchOperation { Stitch, Hdr, Repair };

// "stitch", "hdr", "repair".
const char* operationName(BatchOperation operation);

// One camera of a capture: its configuration file and its shots (absolute paths). A single
// stitch takes six shots; the HDR stitch 12 or 18 and the repair 18, position by position.
struct CameraShots {
  std::string config;
  std::vector<std::string> shots;
};

struct CaptureRecord {
  std::string name;  // unique in the manifest; letters, digits, '.', '_', '-'
  BatchOperation operation = BatchOperation::Stitch;
  CameraShots up;    // empty config when the capture has no upper camera (stitch only)
  CameraShots down;  // stitch only; empty config when absent
  // The panorama's file name relative to the output folder (default <name>.jpg). A stitch of
  // both cameras writes <stem>_Up<ext> and <stem>_Down<ext>.
  std::string output;
  PixelSize shotSize{5472, 3648};
  PixelSize grid{8192, 4096};
  Gains gains;
  bool colourStep = false;            // hdr: run the colour step after the stitch ("isp")
  std::vector<PixelRect> rectangles;  // repair
  int line = 0;                       // 1-based line in the manifest

  // Whether the capture runs the colour step, which needs isp.bat and ./asset/ in its working
  // directory (HDR with "isp", and every repair).
  bool needsColourStep() const;
  // The files the capture leaves, relative to the output folder, Up first.
  std::vector<std::string> outputs() const;
  // Exposures per head position of an HDR stitch or repair (shots / 6).
  int exposureCount() const { return static_cast<int>(up.shots.size()) / 6; }
};

// A manifest that cannot be run; what() reads "<manifest>:<line>: field \"<f>\": <reason>" or,
// for a line that is not JSON, "<manifest>:<line>: <reason>".
class ManifestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a manifest file. Relative paths in it are taken from the manifest's folder and made
// absolute. Blank lines are allowed. Throws ManifestError at the first fault: malformed JSON, an
// unknown or missing field, a wrong type or count, a configuration file that does not exist, a
// name or an output used twice, or two captures of one camera whose configuration, shot size or
// grid differ (they would share one projection table).
std::vector<CaptureRecord> readManifest(const std::string& path);

// One record as a JSON object with absolute paths (the form readManifest accepts, and the form a
// capture's own process receives).
nlohmann::json recordToJson(const CaptureRecord& record);

// Parses one record; `baseDir` resolves relative paths. Throws ManifestError naming the field
// (without a line; readManifest adds it). Does not look at other records.
CaptureRecord recordFromJson(const nlohmann::json& object, const std::string& baseDir);

}  // namespace velmora::tool
