// The rig's two fixed lens polynomials: the corrected angle from the optical axis.
#pragma once

#include <cstdint>

namespace velmora {

inline constexpr uint32_t kUpLens = 0;
inline constexpr uint32_t kDownLens = 1;

// theta: angle from the optical axis in radians. Selector 0 is the Up camera's lens, any other
// value the Down camera's. Powers are taken in single precision (powf, the square as theta *
// theta), the sum in double precision, the result rounded to float.
float lensAngle(float theta, uint32_t selector);

}  // namespace velmora
