// The external colour script and its profiles, as every colour step of the library runs them.
// All paths are relative to the current working directory, where the script and its ./asset/
// folder live.
#pragma once

#include <string>

namespace velmora {

inline constexpr char kHighSaturationProfile[] = "./asset/satuHigh.pp3";
inline constexpr char kLowSaturationProfile[] = "./asset/satuLow.pp3";
// The profile the script reads; overwritten with one of the two above before a run.
inline constexpr char kScriptProfile[] = "./asset/isp_minion.pp3";

// The profile for an image of this saturation measure: the high one when the measure is greater
// than 0.5, the low one otherwise (0.5 itself and NaN included).
const char* ispProfileFor(float saturation);

// Copies ispProfileFor(saturation) onto kScriptProfile. A failed copy only prints copyFile's
// line; the script then runs with whatever profile is in place.
void installIspProfile(float saturation);

// "isp.bat isp_minion.pp3 " + finalPath + " " + intermediatePath: paths exactly as given.
std::string ispCommand(const std::string& finalPath, const std::string& intermediatePath);

// Runs the colour script on the intermediate image, which it turns into finalPath, waits for it
// and deletes the intermediate image (with native separators). The script's exit code is not
// examined: the caller judges the run by the file at finalPath.
void runIspScript(const std::string& finalPath, const std::string& intermediatePath);

}  // namespace velmora
