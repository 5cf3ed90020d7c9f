#include "flow/overlap_flow.h"

#include <opencv2/imgproc.hpp>
#include <thread>

#include "common/buffer_pool.h"
#include "common/concurrency_gate.h"
#include "common/status.h"
#include "common/worker_threads.h"
#include "flow/initial_search.h"
#include "flow/optical_flow.h"

namespace velmora {

int overlapWidth(int imageWidth) {
  return static_cast<int>(static_cast<float>(imageWidth) * 60.0f / 360.0f);
}

OverlapColumns overlapColumns(int imageWidth) {
  const int width = overlapWidth(imageWidth);
  const int secondX = static_cast<int>(static_cast<float>(imageWidth) * 120.0f / 360.0f);
  const int firstX = imageWidth / 2;
  return {cv::Range(firstX, firstX + width), cv::Range(secondX, secondX + width),
          cv::Range(firstX, firstX + 2 * width / 3),
          cv::Range(secondX + width / 3, secondX + width)};
}

namespace {

// A BGRA copy of `region` of an 8-bit BGR or BGRA image; BGR pixels get alpha 255.
cv::Mat bgraCopy(const cv::Mat& image, const cv::Rect& region) {
  cv::Mat copy = pooledMat();
  if (image.type() == CV_8UC4) {
    image(region).copyTo(copy);
  } else {
    cv::cvtColor(image(region), copy, cv::COLOR_BGR2BGRA);
  }
  return copy;
}

// Overlap jobs that compute flows run one per two cores (each computes its two flows at once): a
// job's pyramids and working images are freed before the next job starts, which takes them back
// from the buffer pool instead of holding its own beside them; and its cut-outs are made only
// when its turn comes, so that they too reuse those of a pair already done.
ConcurrencyGate& overlapJobGate() {
  static ConcurrencyGate gate(std::thread::hardware_concurrency() / 2);
  return gate;
}

}  // namespace

void cutOutOverlap(const cv::Mat& first, const cv::Mat& second, SeamOverlap& overlap) {
  const auto usable = [](const cv::Mat& image) {
    return image.type() == CV_8UC4 || image.type() == CV_8UC3;
  };
  if (!usable(first) || !usable(second) || first.size() != second.size()) {
    throw Failure("Seam overlap: both images must be 8-bit BGR or BGRA of one size.");
  }
  const int height = first.rows;
  const OverlapColumns columns = overlapColumns(first.cols);
  const int width = columns.inFirst.size();
  overlap.firstCut = bgraCopy(first, cv::Rect(columns.inFirst.start, 0, width, height));
  overlap.secondCut = bgraCopy(second, cv::Rect(columns.inSecond.start, 0, width, height));

  overlap.firstCut.colRange(columns.keptInFirst.size(), width).setTo(cv::Scalar::all(0));
  overlap.secondCut.colRange(0, columns.keptInSecond.start - columns.inSecond.start)
      .setTo(cv::Scalar::all(0));
}

void runOverlapFlowJob(const cv::Mat& first, const cv::Mat& second, SeamOverlap& overlap,
                       bool flowsGiven) {
  const BufferPoolSession session;
  if (flowsGiven) {
    cutOutOverlap(first, second, overlap);
    return;
  }
  const ConcurrencyGate::Pass pass(overlapJobGate());
  cutOutOverlap(first, second, overlap);
  overlap.flowFirstToSecond = pooledMat();
  overlap.flowSecondToFirst = pooledMat();
  // Both directions work on the same two cut-outs: what each flow job derives from one cut-out
  // alone (half size, grey, alpha, pyramids, gradients) is derived once for both.
  FlowInput firstInput, secondInput;
  WorkerThreads inputs;
  inputs.start([&] { firstInput = prepareFlowInput(overlap.firstCut); });
  inputs.start([&] { secondInput = prepareFlowInput(overlap.secondCut); });
  inputs.join();
  WorkerThreads flows;
  flows.start([&] {
    computeOpticalFlow(firstInput, secondInput, overlap.flowFirstToSecond, kHintLeftward, true);
  });
  flows.start([&] {
    computeOpticalFlow(secondInput, firstInput, overlap.flowSecondToFirst, kHintRightward, true);
  });
  flows.join();
}

}  // namespace velmora
