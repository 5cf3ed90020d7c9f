// Multi-resolution machinery of exposure fusion: Gaussian and Laplacian pyramids of CV_32F
// images, the collapse of a Laplacian pyramid, and the per-channel pyramid blend of several
// exposures under per-pixel weight maps. Every resampling is cv::pyrDown / cv::pyrUp with
// BORDER_DEFAULT (reflect-101) and an explicit size from halfPyramidSize().
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <vector>

namespace velmora {

// Level 0 first (full size), each further level about half the size of the one before.
using Pyramid = std::vector<cv::Mat>;

// The size of the level below a level of `size`: round(cols / 2) x round(rows / 2) with halves
// rounded away from zero, so odd sizes round up (4095 -> 2048).
cv::Size halfPyramidSize(cv::Size size);

// Levels of a blend of images of `size`: L - 2 with L = trunc(logf(min side) / logf(2)), both
// logarithms and the quotient in single precision (a shorter side of 8192 gives 12.999999, so
// L = 12). 4096 x 2048 gives 9 levels, 8192 x 4096 gives 10. Images whose shorter side is below
// 8 pixels still get one level (the blend is then a plain weighted sum).
int blendLevelCount(cv::Size size);

// Sizes of the `levels` levels of a pyramid over an image of `size` (at least one level).
std::vector<cv::Size> pyramidLevelSizes(cv::Size size, int levels);

// Gaussian pyramid of a one- or multi-channel float image: level 0 is a deep copy of image, each
// further level the pyrDown of the one before, until `levels` levels exist (one level for
// levels below 2). An empty image raises cv::Exception.
Pyramid buildGaussianPyramid(const cv::Mat& image, int levels);

// Laplacian pyramid: level k = cur - pyrUp(pyrDown(cur)) for k = 0 .. levels - 2, with cur the
// low-pass image of level k (cur = image at k = 0); the last level holds the remaining low-pass
// image. With levels below 2 the pyramid is a copy of the image. An empty image raises
// cv::Exception.
Pyramid buildLaplacianPyramid(const cv::Mat& image, int levels);

// Sums a Laplacian pyramid back into one image, from the top level down: level k - 1 +=
// pyrUp(level k). The pyramid is consumed (its levels are overwritten or released); the result
// shares level 0's data. An empty pyramid gives an empty image.
cv::Mat collapseLaplacianPyramid(Pyramid& pyramid);

// Writes `channel` of row `row` of exposure `exposure` as floats into values (one value per
// column). A blend reads every row of a plane twice, so a reader must be repeatable.
using ExposureRowReader = std::function<void(int exposure, int channel, int row, float* values)>;

// Working buffers of a blend, sized on first use. Passing the same ones to successive channel
// blends of one size spares their allocations.
struct BlendBuffers {
  cv::Mat plane;    // one full-size plane
  Pyramid lowPass;  // an exposure's low-pass images below the full size
  Pyramid weights;  // an exposure's Gaussian weights below the full size
};

// Blends one channel of several exposures of equal size under per-pixel weights, one exposure's
// pyramids at a time, without keeping any exposure's pyramid: every Laplacian level goes into the
// result pyramid as soon as it is made. weights holds one CV_32F map per exposure, all of the same
// size (which is the exposures' size), normalised per pixel by the caller; the level count comes
// from that size. Channel 0 (luma) gets the detail-aware top level: the top weights are the
// blurred Gaussian weights, plus 1.5 times the blurred absolute fine band of the exposure's top
// low-pass image for the exposures i < ceil(N / 2) - 1, and that top level is renormalised by
// their sum. Other channels use the Gaussian weights as they come at every level. Returns the
// blended CV_32F plane. Mismatched weight sizes or types raise cv::Exception.
cv::Mat blendExposureChannel(int channel, const ExposureRowReader& readRow,
                             const std::vector<cv::Mat>& weights, BlendBuffers& buffers);

// Blends N CV_32FC3 exposures (channels Y, U, V) of equal size under N CV_32F weight maps of the
// same size: out becomes CV_32FC3 whose channel c is blendExposureChannel of channel c. Empty
// lists, lists of different lengths, or images of other sizes or types raise cv::Exception.
void blendExposurePyramids(std::vector<cv::Mat> exposures, std::vector<cv::Mat> weights,
                           cv::Mat& out);

}  // namespace velmora
