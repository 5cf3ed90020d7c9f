#include "flow/stitch_driver.h"

#include <array>
#include <climits>
#include <opencv2/imgproc.hpp>
#include <string>

#include "common/status.h"
#include "common/worker_threads.h"
#include "flow/overlap_flow.h"
#include "flow/ring_brightness.h"
#include "flow/seam_interpolation.h"

namespace velmora {
namespace {

// The driver's working arrays have one slot per pair of a full ring.
constexpr int kMaximumRing = kFullRing;

using Overlaps = std::array<SeamOverlap, kMaximumRing>;
using Bands = std::array<cv::Mat, kMaximumRing>;

std::string sizeText(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

void requireRing(const std::vector<cv::Mat>& images, int count, unsigned frameWidth,
                 unsigned frameHeight, const char* ringName) {
  const std::string ring = std::string("Stitch: ") + ringName;
  if (count < 1 || count > kMaximumRing) {
    throw Failure(ring + " needs 1 to 6 images, not " + std::to_string(count) + ".");
  }
  if (images.size() != static_cast<std::size_t>(count)) {
    throw Failure(ring + " holds " + std::to_string(images.size()) + " images, but the count is " +
                  std::to_string(count) + ".");
  }
  if (frameWidth == 0 || frameHeight == 0 || frameWidth > INT_MAX || frameHeight > INT_MAX) {
    throw Failure("Stitch: a frame of " + std::to_string(frameWidth) + "x" +
                  std::to_string(frameHeight) + " is not usable.");
  }
  if (frameWidth < static_cast<unsigned>(count)) {
    throw Failure("Stitch: a frame " + std::to_string(frameWidth) +
                  " columns wide leaves no band for " + std::to_string(count) + " images.");
  }
  const cv::Size size = images[0].size();
  for (std::size_t i = 0; i < images.size(); ++i) {
    const cv::Mat& image = images[i];
    if (image.empty()) throw Failure(ring + " image " + std::to_string(i) + " is empty.");
    if (image.type() != CV_8UC3 && image.type() != CV_8UC4) {
      throw Failure(ring + " image " + std::to_string(i) + " is not 8-bit BGR or BGRA.");
    }
    if (image.size() != size) {
      throw Failure(ring + " image " + std::to_string(i) + " is " +
                    sizeText(image.cols, image.rows) + ", image 0 is " +
                    sizeText(size.width, size.height) + ".");
    }
  }
}

// The step before any thread: brightness. BGR images stay BGR: the overlap cut-outs, the only
// parts of the images the flow jobs read, are made BGRA as they are cut, which gives the same
// bytes as converting the whole images first without writing a fourth channel into every pixel.
void prepareRing(std::vector<cv::Mat>& images, int count, unsigned frameWidth,
                 unsigned frameHeight) {
  equaliseRingBrightness(images, count, frameWidth, frameHeight);
}

// One overlap flow job per pair on threads of their own; joined in start order.
void computeOverlaps(const std::vector<cv::Mat>& images, int count, Overlaps& overlaps,
                     bool flowsGiven) {
  WorkerThreads jobs;
  for (int i = 0; i < count; ++i) {
    jobs.start([&images, &overlaps, count, i, flowsGiven] {
      runOverlapFlowJob(images[i], images[(i + 1) % count], overlaps[i], flowsGiven);
    });
  }
  jobs.join();
}

// One interpolation job per pair on threads of their own, the cut-outs from `cuts` and the flows
// from `flows`; joined in start order.
void interpolateBands(const Overlaps& cuts, const Overlaps& flows, int count, unsigned frameWidth,
                      unsigned frameHeight, Bands& bands) {
  WorkerThreads jobs;
  for (int i = 0; i < count; ++i) {
    jobs.start([&cuts, &flows, &bands, count, i, frameWidth, frameHeight] {
      interpolateSeamBand(cuts[i].firstCut, cuts[i].secondCut, flows[i].flowFirstToSecond,
                          flows[i].flowSecondToFirst, count, static_cast<int>(frameWidth),
                          static_cast<int>(frameHeight), bands[i]);
    });
  }
  jobs.join();
}

// The bands side by side in pair order, without alpha, resized to the frame.
void assembleBands(const Bands& bands, int count, unsigned frameWidth, unsigned frameHeight,
                   cv::Mat& output) {
  // Each band goes without its alpha straight into its columns of the joined image: the bytes
  // of joining first and dropping the alpha after, without the joined BGRA copy.
  int columns = 0;
  for (int i = 0; i < count; ++i) {
    CV_Assert(bands[i].type() == CV_8UC4 && bands[i].rows == bands[0].rows);
    columns += bands[i].cols;
  }
  cv::Mat colour(bands[0].rows, columns, CV_8UC3);
  for (int i = 0, left = 0; i < count; left += bands[i].cols, ++i) {
    cv::Mat part = colour.colRange(left, left + bands[i].cols);
    cv::cvtColor(bands[i], part, cv::COLOR_BGRA2BGR);
  }
  cv::resize(colour, output, cv::Size(static_cast<int>(frameWidth), static_cast<int>(frameHeight)),
             0.0, 0.0, cv::INTER_LINEAR);
}

}  // namespace

void stitchRing(cv::Mat& output, std::vector<cv::Mat>& images, float /*angle*/, int count,
                unsigned frameWidth, unsigned frameHeight) {
  requireRing(images, count, frameWidth, frameHeight, "the ring");
  prepareRing(images, count, frameWidth, frameHeight);
  Overlaps overlaps;
  computeOverlaps(images, count, overlaps, false);
  Bands bands;
  interpolateBands(overlaps, overlaps, count, frameWidth, frameHeight, bands);
  overlaps = Overlaps();
  assembleBands(bands, count, frameWidth, frameHeight, output);
}

void stitchTwoRings(cv::Mat& upperOutput, std::vector<cv::Mat>& upperImages, cv::Mat& lowerOutput,
                    std::vector<cv::Mat>& lowerImages, float /*angle*/, int count,
                    unsigned frameWidth, unsigned frameHeight) {
  requireRing(upperImages, count, frameWidth, frameHeight, "the upper ring");
  requireRing(lowerImages, count, frameWidth, frameHeight, "the lower ring");

  prepareRing(upperImages, count, frameWidth, frameHeight);
  Overlaps upper;
  computeOverlaps(upperImages, count, upper, false);
  Bands bands;
  interpolateBands(upper, upper, count, frameWidth, frameHeight, bands);
  assembleBands(bands, count, frameWidth, frameHeight, upperOutput);

  prepareRing(lowerImages, count, frameWidth, frameHeight);
  Overlaps lower;
  computeOverlaps(lowerImages, count, lower, true);
  interpolateBands(lower, upper, count, frameWidth, frameHeight, bands);
  assembleBands(bands, count, frameWidth, frameHeight, lowerOutput);
}

}  // namespace velmora
