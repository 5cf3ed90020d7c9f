#include "flow/stitch_driver.h"

#include <algorithm>
#include <array>
#include <climits>
#include <opencv2/imgproc.hpp>
#include <string>

#include "common/buffer_pool.h"
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
void prepareRing(std::vector<cv::Mat>& images, int count, unsigned frameWidth, unsigned frameHeight,
                 UnreadColumns unread) {
  equaliseRingBrightness(images, count, frameWidth, frameHeight,
                         unread == UnreadColumns::kEqualised
                             ? cv::Range::all()
                             : ringColumnsRead(images[0].cols, frameWidth, count));
}

// One job per pair on threads of their own, joined in start order: the pair's overlap job (its
// cut-outs, and its flows unless `givenFlows` holds them), then its band from the cut-outs and
// the flows. A pair's cut-outs are released with its band made, and its flows too unless
// `keepFlows`, so that later pairs take their buffers back from the pool.
void stitchPairs(const std::vector<cv::Mat>& images, int count, const Overlaps* givenFlows,
                 bool keepFlows, unsigned frameWidth, unsigned frameHeight, Overlaps& overlaps,
                 Bands& bands) {
  WorkerThreads jobs;
  for (int i = 0; i < count; ++i) {
    jobs.start([&, i] {
      SeamOverlap& overlap = overlaps[i];
      runOverlapFlowJob(images[i], images[(i + 1) % count], overlap, givenFlows != nullptr);
      const SeamOverlap& flows = givenFlows != nullptr ? (*givenFlows)[i] : overlap;
      interpolateSeamBand(overlap.firstCut, overlap.secondCut, flows.flowFirstToSecond,
                          flows.flowSecondToFirst, count, static_cast<int>(frameWidth),
                          static_cast<int>(frameHeight), bands[i]);
      overlap.firstCut.release();
      overlap.secondCut.release();
      if (!keepFlows) {
        overlap.flowFirstToSecond.release();
        overlap.flowSecondToFirst.release();
      }
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
  cv::Mat colour = pooledMat(bands[0].rows, columns, CV_8UC3);
  for (int i = 0, left = 0; i < count; left += bands[i].cols, ++i) {
    cv::Mat part = colour.colRange(left, left + bands[i].cols);
    cv::cvtColor(bands[i], part, cv::COLOR_BGRA2BGR);
  }
  cv::resize(colour, output, cv::Size(static_cast<int>(frameWidth), static_cast<int>(frameHeight)),
             0.0, 0.0, cv::INTER_LINEAR);
}

}  // namespace

cv::Range ringColumnsRead(int imageWidth, unsigned frameWidth, int count) {
  const OverlapColumns bands = overlapColumns(imageWidth);
  cv::Range read(std::min(bands.keptInFirst.start, bands.keptInSecond.start),
                 std::max(bands.keptInFirst.end, bands.keptInSecond.end));
  if (count == kFullRing) {
    // The strips lie inside the bands' kept columns; taken in all the same, so that this stays
    // the whole of what is read.
    const BrightnessStrips strips = brightnessStrips(frameWidth, 1);
    read.start = std::min({read.start, strips.inFirst.x, strips.inSecond.x});
    read.end = std::max({read.end, strips.inFirst.br().x, strips.inSecond.br().x});
  }
  read.start = std::max(read.start, 0);
  read.end = std::min(read.end, imageWidth);
  return read.start < read.end ? read : cv::Range(0, 0);
}

void stitchRing(cv::Mat& output, std::vector<cv::Mat>& images, float /*angle*/, int count,
                unsigned frameWidth, unsigned frameHeight, UnreadColumns unread) {
  requireRing(images, count, frameWidth, frameHeight, "the ring");
  const BufferPoolSession session;
  prepareRing(images, count, frameWidth, frameHeight, unread);
  Overlaps overlaps;
  Bands bands;
  stitchPairs(images, count, nullptr, false, frameWidth, frameHeight, overlaps, bands);
  assembleBands(bands, count, frameWidth, frameHeight, output);
}

void stitchTwoRings(cv::Mat& upperOutput, std::vector<cv::Mat>& upperImages, cv::Mat& lowerOutput,
                    std::vector<cv::Mat>& lowerImages, float /*angle*/, int count,
                    unsigned frameWidth, unsigned frameHeight, UnreadColumns unread) {
  requireRing(upperImages, count, frameWidth, frameHeight, "the upper ring");
  requireRing(lowerImages, count, frameWidth, frameHeight, "the lower ring");
  const BufferPoolSession session;

  prepareRing(upperImages, count, frameWidth, frameHeight, unread);
  Overlaps upper;
  Bands bands;
  stitchPairs(upperImages, count, nullptr, true, frameWidth, frameHeight, upper, bands);
  assembleBands(bands, count, frameWidth, frameHeight, upperOutput);

  prepareRing(lowerImages, count, frameWidth, frameHeight, unread);
  Overlaps lower;
  stitchPairs(lowerImages, count, &upper, false, frameWidth, frameHeight, lower, bands);
  assembleBands(bands, count, frameWidth, frameHeight, lowerOutput);
}

}  // namespace velmora
