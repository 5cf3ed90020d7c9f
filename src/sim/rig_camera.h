// The simulated rig's two cameras: their shot sizes as a host passes them, the camera geometry the
// library builds from those sizes, and default calibrations that close the ring of six shots.
#pragma once

#include <string>

#include "rig/camera_config.h"
#include "rig/camera_model.h"

namespace velmora::sim {

enum class RigCamera { Up, Down };

// "Up" or "Down": the name the library's camera choice expects at the start of the configuration
// file name, and the prefix of every file the simulator writes for that camera.
const char* cameraName(RigCamera camera);

// A shot's size in pixels as stored in its file and passed to the library's Init (width first).
struct ShotSize {
  int width = 0;
  int height = 0;
};

// The full-size shot of the rig's cameras.
inline constexpr ShotSize kRealShotSize{5472, 3648};

// The geometry the library's camera model gets for this camera: the Up camera's shots are turned
// a quarter before projection, so its model sees height columns by width rows (size1 = height);
// the Down camera's model sees width by height. Throws Failure for a non-positive size.
CameraGeometry rigGeometry(RigCamera camera, ShotSize shot, int gridWidth, int gridHeight);

// A calibration that covers the full circle with six shots 60 degrees apart: every shot sees
// about 62 degrees either side of its axis at the horizon, so neighbours overlap by about 64
// degrees; the Up camera is tilted up by 23 degrees (it reaches the zenith), the Down camera down
// by 15 degrees, both rolled slightly, and the optical centres sit a few pixels off the middle as
// a real calibration's do. Defined for kRealShotSize and scaled to any other size so that the
// horizontal view stays the same. Throws Failure for a non-positive size.
CameraCalibration defaultCalibration(RigCamera camera, ShotSize shot);

// The calibration as a camera configuration text of the library: nine label/number pairs, one
// per line, numbers written so that reading them back gives the same values.
std::string calibrationText(const CameraCalibration& calibration);

// Writes calibrationText to path. Throws Failure when the file cannot be written completely.
void writeCalibration(const CameraCalibration& calibration, const std::string& path);

// Reads a camera configuration text as the library reads it. Throws Failure when the file cannot
// be opened.
CameraCalibration readCalibration(const std::string& path);

// Builds a calibration from its first five values (the extras stay 0).
CameraCalibration makeCalibration(double focal, double centerX, double centerY, float rotX,
                                  float rotZ);

}  // namespace velmora::sim
