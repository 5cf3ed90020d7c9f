// Helpers shared by the velmora subcommands: option parsing and the library's stitch handle.
#pragma once

#include <CLI/CLI.hpp>
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

// Parses a comma-separated list of positive numbers (at least one); throws
// CLI::ValidationError otherwise.
std::vector<float> parsePositiveList(const std::string& text, size_t expectedCount = 0);

// A stitch handle of the library, destroyed with this object. Init and Execute report through
// the handle's status code; these wrappers return it as the signed value (0 completed, -1
// failure, -2 out of memory).
class StitchSession {
 public:
  StitchSession();
  ~StitchSession();
  StitchSession(const StitchSession&) = delete;
  StitchSession& operator=(const StitchSession&) = delete;

  int init(const std::string& configPath, const std::string& tableDir, PixelSize shot,
           PixelSize grid);
  // Defined in single_stitch.cpp, built only with the library's single-stitch export.
  int stitch(const std::string& configPath, const std::vector<std::string>& shots,
             const std::string& outputPath, float red, float green, float blue);

  int code() const;

 private:
  void* handle_;
};

}  // namespace velmora::tool
