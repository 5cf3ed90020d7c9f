// Helpers shared by the velmora subcommands: option parsing, the library's stitch handle and its
// status codes.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>
#include <vector>

namespace velmora::tool {

// A width x height pair given on the command line as "WIDTHxHEIGHT" (e.g. 5472x3648).
struct PixelSize {
  int width = 0;
  int height = 0;
};

// Parses "WIDTHxHEIGHT" with both numbers positive; throws CLI::ValidationError otherwise.
PixelSize parsePixelSize(const std::string& text);

// Adds an option of the form WIDTHxHEIGHT that stores into size; the default is shown in the
// usage text.
CLI::Option* addSizeOption(CLI::App& command, const std::string& name, PixelSize& size,
                           const std::string& description);

// The options of every command that initialises a camera: the projection table folder
// (-t/--tables, required, an existing folder), the shot size and the panorama grid.
void addCameraGridOptions(CLI::App& command, std::string& tableDir, PixelSize& shotSize,
                          PixelSize& grid, const std::string& shotDescription,
                          const std::string& gridDescription);

// Parses a comma-separated list of positive numbers (at least one); throws
// CLI::ValidationError otherwise.
std::vector<float> parsePositiveList(const std::string& text, size_t expectedCount = 0);

// Parses "X,Y,WIDTH,HEIGHT" (integers, width and height positive) into a rectangle; throws
// CLI::ValidationError otherwise.
struct PixelRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};
PixelRect parsePixelRect(const std::string& text);

// The running tool's own file. Throws std::runtime_error when the system does not say.
std::filesystem::path toolExecutable();

// A library status code in words: "completed" (0), "failed" (-1), "out of memory" (-2),
// "unknown status" for anything else.
const char* statusInWords(int code);

// Prints "velmora <command>: <step> status <code> (<words>)" on standard output for 0 and on
// standard error otherwise, and returns whether the code is 0.
bool reportStatus(const std::string& command, const std::string& step, int code);

// White-balance gains as --gains takes them.
struct Gains {
  float red = 1.0f;
  float green = 1.0f;
  float blue = 1.0f;
};
// Parses "RED,GREEN,BLUE" (three positive numbers); throws CLI::ValidationError otherwise.
Gains parseGains(const std::string& text);

// A stitch handle of the library, destroyed with this object. Init and Execute report through
// the handle's status code; these wrappers return it as the signed value (0 completed, -1
// failure, -2 out of memory). The library prints its own progress and failure lines.
class StitchSession {
 public:
  StitchSession();
  ~StitchSession();
  StitchSession(const StitchSession&) = delete;
  StitchSession& operator=(const StitchSession&) = delete;

  int init(const std::string& configPath, const std::string& tableDir, PixelSize shot,
           PixelSize grid);
  // The single-exposure stitch of six shots.
  int stitch(const std::string& configPath, const std::vector<std::string>& shots,
             const std::string& outputPath, float red, float green, float blue);
  // The HDR stitch of 18 shot slots (exposure e of position p at p x 3 + e, empty beyond
  // exposureCount). Without the video flag the panorama waits at outputPath + ".jpg" for isp().
  int hdr(const std::vector<std::string>& slots, const std::string& outputPath, bool withVideo,
          Gains gains, int exposureCount);
  // The panorama repair of 18 shot slots and rectangles in the framed panorama's coordinates.
  int repair(const std::vector<std::string>& slots, const std::string& outputPath,
             const std::vector<PixelRect>& rectangles, Gains gains);
  // The colour step of a panorama that hdr() on this session left pending under `name`.
  int isp(const std::string& name);

  int code() const;

 private:
  void* handle_;
};

}  // namespace velmora::tool
