// The inverse of the rig's lens polynomials: from the corrected angle that a shot pixel's radius
// gives back to the true angle from the optical axis.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora::sim {

// Solves lensAngle(theta, selector) = corrected for theta in [0, 70 degrees] by bisection on the
// library's own polynomial (monotonic on that range), to float resolution. Returns a negative
// value when corrected lies beyond the polynomial's value at 70 degrees (the pixel is outside the
// view the projection table keeps); corrected below the value at 0 returns 0.
double inverseLensAngle(double corrected, uint32_t selector);

// The largest corrected angle a lens keeps: lensAngle(70 degrees).
double maxCorrectedAngle(uint32_t selector);

// A dense table of inverseLensAngle over [0, maxCorrectedAngle], sampled once and read with
// linear interpolation: the per-pixel form of the solve (its error is far below 1e-6 rad).
class InverseLensTable {
 public:
  explicit InverseLensTable(uint32_t selector);

  // theta for a corrected angle; negative beyond maxCorrectedAngle (no view), 0 below 0.
  double theta(double corrected) const {
    if (!(corrected <= maxCorrected_)) return -1.0;
    if (corrected <= 0.0) return thetas_.front();
    const double position = corrected * samplesPerRadian_;
    const size_t index = static_cast<size_t>(position);
    if (index + 1 >= thetas_.size()) return thetas_.back();
    const double weight = position - static_cast<double>(index);
    return thetas_[index] + weight * (thetas_[index + 1] - thetas_[index]);
  }

  double maxCorrected() const { return maxCorrected_; }

 private:
  double maxCorrected_;
  double samplesPerRadian_;
  std::vector<double> thetas_;
};

}  // namespace velmora::sim
