#include "tools/isp_script.h"

#include <cstdio>

#include "tools/file_copy.h"
#include "tools/path_separators.h"
#include "tools/process_runner.h"

namespace velmora {

const char* ispProfileFor(float saturation) {
  // Written as "greater than" so that NaN (an all-black image) takes the low profile.
  return saturation > 0.5f ? kHighSaturationProfile : kLowSaturationProfile;
}

void installIspProfile(float saturation) {
  copyFile(ispProfileFor(saturation), kScriptProfile);
}

std::string ispCommand(const std::string& finalPath, const std::string& intermediatePath) {
  return "isp.bat isp_minion.pp3 " + finalPath + " " + intermediatePath;
}

void runIspScript(const std::string& finalPath, const std::string& intermediatePath) {
  const std::string command = ispCommand(finalPath, intermediatePath);
  const std::string intermediateFile = toNativeSeparators(intermediatePath);
  runCommand(command);
  std::remove(intermediateFile.c_str());
}

}  // namespace velmora
