#include "sim/inverse_lens.h"

#include "rig/camera_model.h"
#include "rig/lens.h"

namespace velmora::sim {

namespace {

// Samples of the inverse table: the corrected angle runs up to about 0.86 rad, so neighbouring
// samples are about 5e-5 rad apart and linear interpolation stays within 1e-9 rad.
constexpr size_t kInverseSamples = 16384;

double correctedAngle(double theta, uint32_t selector) {
  return lensAngle(static_cast<float>(theta), selector);
}

}  // namespace

double maxCorrectedAngle(uint32_t selector) {
  return correctedAngle(kMaxViewAngle, selector);
}

double inverseLensAngle(double corrected, uint32_t selector) {
  if (corrected > maxCorrectedAngle(selector)) return -1.0;
  double low = 0.0;
  double high = kMaxViewAngle;
  if (correctedAngle(low, selector) >= corrected) return 0.0;
  // Invariant: lensAngle(low) < corrected <= lensAngle(high). Sixty halvings reach far below the
  // float resolution at which the polynomial is evaluated.
  for (int step = 0; step < 60 && high - low > 1e-12; ++step) {
    const double middle = 0.5 * (low + high);
    if (correctedAngle(middle, selector) < corrected) {
      low = middle;
    } else {
      high = middle;
    }
  }
  return 0.5 * (low + high);
}

InverseLensTable::InverseLensTable(uint32_t selector)
    : maxCorrected_(maxCorrectedAngle(selector)),
      samplesPerRadian_((kInverseSamples - 1) / maxCorrected_),
      thetas_(kInverseSamples) {
  for (size_t k = 0; k < kInverseSamples; ++k) {
    thetas_[k] = inverseLensAngle(static_cast<double>(k) / samplesPerRadian_, selector);
  }
  // The last sample is the edge of the view itself; rounding must not push it outside.
  thetas_.back() = kMaxViewAngle;
}

}  // namespace velmora::sim
