#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "rig/lens.h"

namespace velmora {
namespace {

// The lens polynomials as written first: every power from powf, the square as theta * theta.
float plainLensAngle(float theta, uint32_t selector) {
  const double p[10] = {powf(theta, 0.0f), powf(theta, 1.0f), theta * theta,     powf(theta, 3.0f),
                        powf(theta, 4.0f), powf(theta, 5.0f), powf(theta, 6.0f), powf(theta, 7.0f),
                        powf(theta, 8.0f), powf(theta, 9.0f)};
  if (selector != kUpLens) {
    return static_cast<float>(0.00609440953 * p[9] - 0.0594089197 * p[8] + 0.242690843 * p[7] -
                              0.521631479 * p[6] + 0.56525997 * p[5] - 0.117396546 * p[4] -
                              0.348350596 * p[3] - 0.00221254837 * p[2] + 1.00007236 * p[1] -
                              5.83568031e-8 * p[0]);
  }
  return static_cast<float>(0.652310693 * p[8] - 0.14312539 * p[9] - 1.1369249 * p[7] +
                            0.877972237 * p[6] - 0.225359601 * p[5] + 0.104907503 * p[4] -
                            0.361511533 * p[3] - 0.00159835497 * p[2] + 1.00051129 * p[1] -
                            4.2467102e-6 * p[0]);
}

bool sameBits(float a, float b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(LensAngle, MatchesThePlainPowerFormulaBitForBit) {
  for (uint32_t lens : {kUpLens, kDownLens}) {
    // Thetas 0.01 % apart from 0 to past the 70-degree view limit, then the odd ones out.
    for (float theta = 0.0f; theta < 1.25f; theta = std::nextafter(theta + theta * 1e-4f, 2.0f)) {
      ASSERT_TRUE(sameBits(lensAngle(theta, lens), plainLensAngle(theta, lens)))
          << "lens " << lens << " theta " << theta;
    }
    for (float theta : {1.2217305f, std::numeric_limits<float>::denorm_min(),
                        std::numeric_limits<float>::quiet_NaN()}) {
      EXPECT_TRUE(sameBits(lensAngle(theta, lens), plainLensAngle(theta, lens)))
          << "lens " << lens << " theta " << theta;
    }
  }
}

}  // namespace
}  // namespace velmora
