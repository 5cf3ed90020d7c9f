// Turns the light a shot receives into the 8-bit shot a camera writes: exposure, noise, rounding.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

namespace velmora::sim {

struct Exposure {
  // Multiplies the light; values beyond 255 saturate. Must be positive.
  float factor = 1.0f;
  // Standard deviation of the Gaussian noise added after the exposure, in 8-bit levels; 0: none.
  float noiseSigma = 0.0f;
  // Seed of the noise; the same seed gives the same noise.
  uint64_t seed = 0;
};

// light: CV_32FC3 (renderShotLight). Returns CV_8UC3 with every channel
// round(clamp(light x factor + noise, 0, 255)). Throws Failure for another image type, a factor
// that is not positive or a negative noise level.
cv::Mat developShot(const cv::Mat& light, const Exposure& exposure);

}  // namespace velmora::sim
