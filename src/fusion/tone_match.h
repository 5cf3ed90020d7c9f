// Tone matching of an image to a reference frame: the luma of a source image is compared with
// the reference's; when they differ enough, but not too much and not over too large an area, a
// cubic tone curve fitted by histogram matching of the unchanged pixels is applied to a target
// image. The three measures are printed so that a refusal can be traced.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <vector>

namespace velmora {

// For every source level, the reference level whose cumulative frequency is closest.
using LevelMap = std::array<unsigned, 256>;

// Compares source with reference (both CV_8UC3 BGR of one size, taken by value) and, unless it
// refuses, replaces every channel value x of target (8-bit, three channels, any size) by the
// fitted cubic curve at x, clamped to 0..255 and truncated. Prints "Bright diff rate: <rate>"
// (share of pixels whose luma differs by less than 5) and refuses when it exceeds 0.4; prints
// "mean diff 50% > 30% over 40th." and refuses when the median difference exceeds the 30%
// quantile by more than 40; prints "Mask diff rate: <rate>" (share of pixels differing by more
// than median + 20) and refuses when it exceeds 0.4. On a refusal target is left untouched.
// Source and reference of different sizes, or of other types, raise cv::Exception.
void matchToneToReference(cv::Mat source, cv::Mat reference, cv::Mat& target);

// Fills map with, for each source level i, the reference level j whose cumulative frequency is
// closest to that of i (the lowest j on a tie). Both cumulative histograms count only the pixels
// where mask is 0 and are divided by their number. sourceLuma, referenceLuma and mask are CV_8U
// images of one size; anything else raises cv::Exception.
void matchHistogramLevels(const cv::Mat& sourceLuma, const cv::Mat& referenceLuma,
                          const cv::Mat& mask, LevelMap& map);

// Least-squares polynomial of `degree` through points: returns a (degree + 1) x 1 CV_64F column
// c0, c1, ... of y = c0 + c1 x + c2 x^2 + ..., solved through the normal equations with an LU
// inverse. Fewer points than coefficients make the system singular: the inverse is then zero and
// so are the coefficients.
cv::Mat fitPolynomial(const std::vector<cv::Point2d>& points, int degree);

}  // namespace velmora
