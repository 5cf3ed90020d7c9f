#include "rig/lens.h"

#include <cmath>

namespace velmora {

float lensAngle(float theta, uint32_t selector) {
  // powf(theta, 0) is 1 and powf(theta, 1) is theta, exactly, for every float (NaN included).
  const double p0 = 1.0;
  const double p1 = theta;
  const double p2 = theta * theta;
  const double p3 = powf(theta, 3.0f);
  const double p4 = powf(theta, 4.0f);
  const double p5 = powf(theta, 5.0f);
  const double p6 = powf(theta, 6.0f);
  const double p7 = powf(theta, 7.0f);
  const double p8 = powf(theta, 8.0f);
  const double p9 = powf(theta, 9.0f);
  if (selector != kUpLens) {
    return static_cast<float>(0.00609440953 * p9 - 0.0594089197 * p8 + 0.242690843 * p7 -
                              0.521631479 * p6 + 0.56525997 * p5 - 0.117396546 * p4 -
                              0.348350596 * p3 - 0.00221254837 * p2 + 1.00007236 * p1 -
                              5.83568031e-8 * p0);
  }
  return static_cast<float>(0.652310693 * p8 - 0.14312539 * p9 - 1.1369249 * p7 + 0.877972237 * p6 -
                            0.225359601 * p5 + 0.104907503 * p4 - 0.361511533 * p3 -
                            0.00159835497 * p2 + 1.00051129 * p1 - 4.2467102e-6 * p0);
}

}  // namespace velmora
