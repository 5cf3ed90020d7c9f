// The parallel stitch driver: turns a ring of neighbouring images, projected to the common
// equirectangular frame, into one panorama strip.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace velmora {

// Stitches a ring of `count` images (1 to 6; image i neighbours image i + 1, the last neighbours
// the first; one image is paired with itself).
//
// images: 8-bit BGR or BGRA, all of one non-empty size, projected to the common frame, with
//   count == images.size(). On return they hold the brightness-equalised images, of their type
//   as given (callers reuse them). A full ring of six is equalised pair by pair; smaller rings keep
//   their brightness.
// angle: the rig's step between neighbouring images in degrees (60.0 for the rig); the band
//   geometry is built for 60-degree steps and does not depend on it.
// frameWidth x frameHeight: the frame; each pair's seam band is frameWidth / count columns by
//   frameHeight rows and the strips the brightness step compares must lie inside the images.
// output: the bands of all pairs side by side in pair order, as BGR, resized (linear) to
//   frameWidth x frameHeight.
//
// Every pair has a thread of its own that computes the pair's flows (on two flow threads) and
// then its band; every thread is joined, and the first exception raised on a worker is rethrown
// here. The working images come from the buffer pool (a session is open throughout). Throws
// Failure on arguments that do not fit.
void stitchRing(cv::Mat& output, std::vector<cv::Mat>& images, float angle, int count,
                unsigned frameWidth, unsigned frameHeight);

// Stitches two rings, the lower one with the upper ring's flow fields (never computed for the
// lower ring): the upper ring as stitchRing into upperOutput; then the lower ring is equalised by
// itself, cut into its overlap bands, and every band is warped with the upper
// ring's flows of the same pair into lowerOutput. Both rings hold `count` images, each ring of
// one size; arguments and failures as for stitchRing.
void stitchTwoRings(cv::Mat& upperOutput, std::vector<cv::Mat>& upperImages, cv::Mat& lowerOutput,
                    std::vector<cv::Mat>& lowerImages, float angle, int count, unsigned frameWidth,
                    unsigned frameHeight);

}  // namespace velmora
