#include "sim/shot_exposure.h"

#include "common/status.h"

namespace velmora::sim {

cv::Mat developShot(const cv::Mat& light, const Exposure& exposure) {
  if (light.type() != CV_32FC3) throw Failure("Shot light must be a three-channel float image.");
  if (!(exposure.factor > 0.0f)) throw Failure("The exposure factor must be positive.");
  if (!(exposure.noiseSigma >= 0.0f)) throw Failure("The noise level must not be negative.");
  cv::Mat shot(light.size(), CV_8UC3);
  cv::RNG noise(exposure.seed);
  const int values = light.cols * 3;
  for (int y = 0; y < light.rows; ++y) {
    const float* in = light.ptr<float>(y);
    uchar* out = shot.ptr<uchar>(y);
    if (exposure.noiseSigma > 0.0f) {
      for (int k = 0; k < values; ++k) {
        const double level = in[k] * exposure.factor + noise.gaussian(exposure.noiseSigma);
        out[k] = cv::saturate_cast<uchar>(level);
      }
    } else {
      for (int k = 0; k < values; ++k) out[k] = cv::saturate_cast<uchar>(in[k] * exposure.factor);
    }
  }
  return shot;
}

}  // namespace velmora::sim
