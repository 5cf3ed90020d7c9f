// The single-exposure stitch through the library's export, kept apart from the rest of the tool
// because it needs ZEMU_ExecuteOptFlowStitchHandle.
#include <stdexcept>

#include "velmora.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

int StitchSession::stitch(const std::string& configPath, const std::vector<std::string>& shots,
                          const std::string& outputPath, float red, float green, float blue) {
  if (shots.size() != 6) throw std::invalid_argument("A stitch takes exactly six shots.");
  const char* paths[6];
  for (size_t k = 0; k < 6; ++k) paths[k] = shots[k].c_str();
  ZEMU_ExecuteOptFlowStitchHandle(handle_, configPath.c_str(), paths, outputPath.c_str(), red,
                                  green, blue);
  return code();
}

}  // namespace velmora::tool
