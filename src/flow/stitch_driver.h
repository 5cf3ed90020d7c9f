// The parallel stitch driver: turns a ring of neighbouring images, projected to the common
// equirectangular frame, into one panorama strip.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace velmora {

// The columns of every ring image that the stitch reads, for images `imageWidth` wide (at least
// 6 columns) in a frame `frameWidth` wide: the kept parts of the overlap bands of both sides and,
// for a full ring, the brightness strips. Empty when the images are too narrow for any band.
cv::Range ringColumnsRead(int imageWidth, unsigned frameWidth, int count);

// What the stitch leaves in the columns of its images that it does not read.
enum class UnreadColumns { kEqualised, kAsGiven };

// Stitches a ring of `count` images (1 to 6; image i neighbours image i + 1, the last neighbours
// the first; one image is paired with itself).
//
// images: 8-bit BGR or BGRA, all of one non-empty size, projected to the common frame, with
//   count == images.size(). Only their columns given by ringColumnsRead are read, so a caller
//   that does not use the images afterwards may leave the others unprojected. On return the
//   images hold their brightness-equalised values, of their type as given: all columns with
//   `unread` kEqualised (callers reuse them), only the columns read with kAsGiven. A full ring
//   of six is equalised pair by pair; smaller rings keep their brightness.
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
                unsigned frameWidth, unsigned frameHeight,
                UnreadColumns unread = UnreadColumns::kEqualised);

// Stitches two rings, the lower one with the upper ring's flow fields (never computed for the
// lower ring): the upper ring as stitchRing into upperOutput; then the lower ring is equalised by
// itself, cut into its overlap bands, and every band is warped with the upper
// ring's flows of the same pair into lowerOutput. Both rings hold `count` images, each ring of
// one size; arguments and failures as for stitchRing.
void stitchTwoRings(cv::Mat& upperOutput, std::vector<cv::Mat>& upperImages, cv::Mat& lowerOutput,
                    std::vector<cv::Mat>& lowerImages, float angle, int count, unsigned frameWidth,
                    unsigned frameHeight, UnreadColumns unread = UnreadColumns::kEqualised);

}  // namespace velmora
