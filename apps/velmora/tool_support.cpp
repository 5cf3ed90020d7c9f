#include "velmora/tool_support.h"

#include <iostream>
#include <sstream>
#include <stdexcept>

#include "velmora.h"

namespace velmora::tool {

PixelSize parsePixelSize(const std::string& text) {
  std::istringstream in(text);
  PixelSize size;
  char separator = 0;
  if (!(in >> size.width >> separator >> size.height) || (separator != 'x' && separator != 'X') ||
      !in.eof() || size.width <= 0 || size.height <= 0) {
    throw CLI::ValidationError("'" + text + "' is not a size WIDTHxHEIGHT such as 5472x3648");
  }
  return size;
}

CLI::Option* addSizeOption(CLI::App& command, const std::string& name, PixelSize& size,
                           const std::string& description) {
  const std::string shown =
      size.width > 0 ? std::to_string(size.width) + "x" + std::to_string(size.height) : "";
  return command
      .add_option_function<std::string>(
          name,
          [&size, name](const std::string& text) {
            try {
              size = parsePixelSize(text);
            } catch (const CLI::ValidationError& error) {
              throw CLI::ValidationError(name, error.what());
            }
          },
          description)
      ->type_name("WxH")
      ->default_str(shown);
}

void addCameraGridOptions(CLI::App& command, std::string& tableDir, PixelSize& shotSize,
                          PixelSize& grid, const std::string& shotDescription,
                          const std::string& gridDescription) {
  command.add_option("-t,--tables", tableDir, "Folder of the projection table cache")
      ->required()
      ->check(CLI::ExistingDirectory);
  addSizeOption(command, "--shot-size", shotSize, shotDescription);
  addSizeOption(command, "--grid", grid, gridDescription);
}

std::vector<float> parsePositiveList(const std::string& text, size_t expectedCount) {
  std::vector<float> values;
  std::istringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    size_t used = 0;
    float value = 0.0f;
    try {
      value = std::stof(item, &used);
    } catch (const std::exception&) {
      used = 0;
    }
    if (used == 0 || used != item.size() || !(value > 0.0f)) {
      throw CLI::ValidationError("'" + text + "' is not a list of positive numbers");
    }
    values.push_back(value);
  }
  if (values.empty() || (expectedCount != 0 && values.size() != expectedCount)) {
    throw CLI::ValidationError("'" + text + "' must hold " +
                               (expectedCount ? std::to_string(expectedCount) : "at least one") +
                               " comma-separated number(s)");
  }
  return values;
}

PixelRect parsePixelRect(const std::string& text) {
  std::istringstream in(text);
  PixelRect rect;
  char comma[3] = {};
  if (!(in >> rect.x >> comma[0] >> rect.y >> comma[1] >> rect.width >> comma[2] >> rect.height) ||
      comma[0] != ',' || comma[1] != ',' || comma[2] != ',' || !in.eof() || rect.width <= 0 ||
      rect.height <= 0) {
    throw CLI::ValidationError("'" + text +
                               "' is not a rectangle X,Y,WIDTH,HEIGHT of positive size");
  }
  return rect;
}

std::filesystem::path toolExecutable() {
  std::error_code error;
  const std::filesystem::path tool = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw std::runtime_error("Cannot find the velmora tool's own file.");
  return tool;
}

const char* statusInWords(int code) {
  switch (code) {
    case 0:
      return "completed";
    case -1:
      return "failed";
    case -2:
      return "out of memory";
    default:
      return "unknown status";
  }
}

bool reportStatus(const std::string& command, const std::string& step, int code) {
  std::ostream& stream = code == 0 ? std::cout : std::cerr;
  stream << "velmora " << command << ": " << step << " status " << code << " ("
         << statusInWords(code) << ")" << std::endl;
  return code == 0;
}

Gains parseGains(const std::string& text) {
  const std::vector<float> values = parsePositiveList(text, 3);
  return Gains{values[0], values[1], values[2]};
}

StitchSession::StitchSession() : handle_(ZEMU_CreateOptFlowStitchHandle()) {
  if (handle_ == nullptr) throw std::runtime_error("Cannot create a stitch handle.");
}

StitchSession::~StitchSession() {
  ZEMU_DestroyOptFlowStitchHandle(handle_);
}

int StitchSession::code() const {
  return static_cast<int>(ZEMU_GetOptFlowStitchCode(handle_));
}

int StitchSession::init(const std::string& configPath, const std::string& tableDir, PixelSize shot,
                        PixelSize grid) {
  ZEMU_InitOptFlowStitchHandle(handle_, configPath.c_str(), tableDir.c_str(), shot.width,
                               shot.height, grid.width, grid.height);
  return code();
}

}  // namespace velmora::tool
