// The overlap of two neighbouring ring images: their band cut-outs and the flow between them in
// both directions.
#pragma once

#include <opencv2/core.hpp>

namespace velmora {

// What the overlap of one neighbouring pair holds: the first image's band (the 60 degrees right of
// its centre) and the second image's band (the 60 degrees left of its centre), each with its far
// third blanked, and the flows between the two bands.
struct SeamOverlap {
  cv::Mat firstCut;           // CV_8UC4, w x H
  cv::Mat secondCut;          // CV_8UC4, w x H
  cv::Mat flowFirstToSecond;  // CV_32FC2, w x H
  cv::Mat flowSecondToFirst;  // CV_32FC2, w x H
};

// The band width of an image W columns wide: trunc(W x 60 / 360), the product in 32-bit float.
int overlapWidth(int imageWidth);

// The columns of the two bands in images W columns wide, w = overlapWidth(W): the first image's
// W / 2 to W / 2 + w - 1, the second image's trunc(W x 120 / 360) onwards (the product in 32-bit
// float); and of those the columns that are not blanked, the first band's first 2w / 3 and the
// second band's columns from w / 3 on.
struct OverlapColumns {
  cv::Range inFirst;
  cv::Range inSecond;
  cv::Range keptInFirst;
  cv::Range keptInSecond;
};
OverlapColumns overlapColumns(int imageWidth);

// Cuts the overlap bands out of `first` and `second` (8-bit BGRA, or BGR taken as BGRA with
// alpha 255, of one size W x H) into overlap.firstCut (columns W / 2 to W / 2 + w - 1 of `first`)
// and overlap.secondCut (columns trunc(W x 120 / 360) onwards of `second`), w = overlapWidth(W),
// each an independent BGRA copy. Then blanks (all four channels 0) the first cut's columns 2w / 3
// to w - 1 and the second cut's columns 0 to w / 3 - 1, so those thirds take no part in the flow.
// The flows are not touched. Throws Failure when the images are not 8-bit BGR or BGRA of one size.
void cutOutOverlap(const cv::Mat& first, const cv::Mat& second, SeamOverlap& overlap);

// The overlap flow job: cutOutOverlap, then, unless `flowsGiven`, the flow from the first cut to
// the second (hint 2, wide propagation) and from the second to the first (hint 0, wide
// propagation), computed at once on two threads and both joined. Jobs that compute flows take
// turns, one per two cores at a time (cut-outs included), so that each reuses the buffers of the
// one before through the buffer pool. With `flowsGiven` no flow is computed and overlap's flows
// stay as the caller set them. An exception in either flow thread is rethrown here after both
// have been joined.
void runOverlapFlowJob(const cv::Mat& first, const cv::Mat& second, SeamOverlap& overlap,
                       bool flowsGiven);

}  // namespace velmora
