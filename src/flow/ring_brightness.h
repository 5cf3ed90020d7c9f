// Brightness equalisation around a ring of six neighbouring images.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <vector>

namespace velmora {

// The number of images in a full ring of the rig (60 degrees apart).
constexpr int kFullRing = 6;

// The strips whose brightness is compared for a pair in a frame frameWidth x frameHeight: in the
// pair's first image the 20 degrees at 200 degrees, in the second the 20 degrees at 140 degrees.
struct BrightnessStrips {
  cv::Rect inFirst;
  cv::Rect inSecond;
};
BrightnessStrips brightnessStrips(unsigned frameWidth, unsigned frameHeight);

// The pair ratio: the sum of the HSV value channel of `first`'s strip over that of `second`'s,
// both taken over the strip's middle 80 % of rows (from trunc(rows x 0.1), trunc(rows x 0.8) rows),
// as 32-bit float sums. The images are 8-bit BGR or BGRA and must contain their strips.
float brightnessRatio(const cv::Mat& first, const cv::Mat& second, const BrightnessStrips& strips);

// The cumulative gains of a full ring from its six pair ratios r(0..5): products[k - 1] =
// g(k) = r(0) x ... x r(k - 1), and the normaliser N = (g(1) + ... + g(6) - smallest - largest) x
// 0.25, where the smallest is chosen among the values capped at 99999 and the largest among the
// values raised to at least -1.
struct RingGains {
  std::array<float, kFullRing> products;
  float normaliser;
};
RingGains ringGains(const std::array<float, kFullRing>& ratios);

// Equalises the brightness of a full ring of six 8-bit BGR or BGRA images in place (alpha is
// kept): every colour value v of image k (1 to 5) becomes round(clamp(v x g(k) / N, 0, 255));
// image 0 ramps, over the columns from 140 to 220 degrees of the frame, from the whole ring's
// product g(6) / N to 1 / N, so the ring's closing error is spread across it. Rings of fewer than
// six images are left as they are: their neighbours are not 60 degrees apart, so the compared
// strips do not show the same scene. Only `columns` of the images are changed (the gains are
// measured on the strips wherever they lie). Throws Failure when the strips do not fit the images.
void equaliseRingBrightness(std::vector<cv::Mat>& images, int count, unsigned frameWidth,
                            unsigned frameHeight, cv::Range columns = cv::Range::all());

}  // namespace velmora
