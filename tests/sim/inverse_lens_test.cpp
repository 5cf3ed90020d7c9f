// The numeric inverse of the lens polynomials, against the library's forward polynomial.
#include "sim/inverse_lens.h"

#include <gtest/gtest.h>

#include <cmath>

#include "rig/camera_model.h"
#include "rig/lens.h"

namespace velmora::sim {
namespace {

class InverseLensTest : public ::testing::TestWithParam<uint32_t> {};

TEST_P(InverseLensTest, SolveRoundTripsThePolynomialOverTheWholeView) {
  const uint32_t lens = GetParam();
  double worstTheta = 0.0;
  double worstCorrected = 0.0;
  for (double theta = 0.001; theta <= kMaxViewAngle; theta += 0.0005) {
    const double corrected = lensAngle(static_cast<float>(theta), lens);
    const double solved = inverseLensAngle(corrected, lens);
    worstTheta = std::max(worstTheta, std::abs(solved - theta));
    worstCorrected =
        std::max(worstCorrected, std::abs(lensAngle(static_cast<float>(solved), lens) - corrected));
  }
  // The library evaluates the polynomial in float powers whose rounding, amplified by the large
  // alternating coefficients, is about 1e-6 rad; where the lens flattens towards 70 degrees that
  // becomes 3e-6 rad of theta, 0.01 px at the full-size focal length.
  EXPECT_LT(worstTheta, 3e-6);
  EXPECT_LT(worstCorrected, 1.5e-6);
}

TEST_P(InverseLensTest, TableAgreesWithTheSolve) {
  const uint32_t lens = GetParam();
  const InverseLensTable table(lens);
  EXPECT_DOUBLE_EQ(table.maxCorrected(), maxCorrectedAngle(lens));
  double worst = 0.0;
  for (double corrected = 0.0; corrected < table.maxCorrected(); corrected += 0.000123) {
    worst = std::max(worst, std::abs(table.theta(corrected) - inverseLensAngle(corrected, lens)));
  }
  // Within the polynomial's own float noise (above).
  EXPECT_LT(worst, 2e-6);
}

TEST_P(InverseLensTest, NothingBeyondSeventyDegrees) {
  const uint32_t lens = GetParam();
  const InverseLensTable table(lens);
  const double beyond = lensAngle(static_cast<float>(kMaxViewAngle + 0.01), lens);
  EXPECT_GT(beyond, maxCorrectedAngle(lens));
  EXPECT_LT(inverseLensAngle(beyond, lens), 0.0);
  EXPECT_LT(table.theta(beyond), 0.0);
  EXPECT_NEAR(inverseLensAngle(maxCorrectedAngle(lens), lens), kMaxViewAngle, 1e-6);
}

INSTANTIATE_TEST_SUITE_P(BothLenses, InverseLensTest, ::testing::Values(kUpLens, kDownLens),
                         [](const auto& info) { return info.param == kUpLens ? "Up" : "Down"; });

}  // namespace
}  // namespace velmora::sim
