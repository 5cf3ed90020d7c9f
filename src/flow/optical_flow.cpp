#include "flow/optical_flow.h"

#include <opencv2/imgproc.hpp>
#include <thread>
#include <vector>

#include "api/status.h"
#include "common/concurrency_gate.h"
#include "flow/flow_pyramid.h"
#include "flow/level_refinement.h"

namespace velmora {
namespace {

// 1 / 255 as a 32-bit float: maps 8-bit values to [0, 1].
constexpr double kByteToUnit = 0.003921568859368563;

// The grey image and the alpha of one half-size BGRA image, both CV_32F in [0, 1]; the grey
// image is lightly smoothed.
void greyAndAlpha(const cv::Mat& halfImage, cv::Mat& grey, cv::Mat& alpha) {
  std::vector<cv::Mat> channels;
  cv::split(halfImage, channels);
  cv::Mat grey8;
  cv::cvtColor(halfImage, grey8, cv::COLOR_BGRA2GRAY);
  grey8.convertTo(grey, CV_32F, 1.0);
  grey.convertTo(grey, CV_32F, kByteToUnit);
  channels[3].convertTo(alpha, CV_32F, 1.0);
  alpha.convertTo(alpha, CV_32F, kByteToUnit);
  cv::GaussianBlur(grey, grey, cv::Size(5, 5), 0.25, 0.0, cv::BORDER_DEFAULT);
}

void requireFlowInputs(const cv::Mat& first, const cv::Mat& second) {
  if (first.type() != CV_8UC4 || second.type() != CV_8UC4) {
    throw Failure("Optical flow: both images must be 8-bit BGRA.");
  }
  if (first.size() != second.size()) {
    throw Failure("Optical flow: the images differ in size (" + std::to_string(first.cols) + "x" +
                  std::to_string(first.rows) + " and " + std::to_string(second.cols) + "x" +
                  std::to_string(second.rows) + ").");
  }
  if (first.cols / 2 < 2 || first.rows / 2 < 2) {
    throw Failure("Optical flow: images of " + std::to_string(first.cols) + "x" +
                  std::to_string(first.rows) + " are too small (at least 4x4).");
  }
}

// Flow jobs of the whole process compute at most one per core at a time; the rest wait.
ConcurrencyGate& flowJobGate() {
  static ConcurrencyGate gate(std::thread::hardware_concurrency());
  return gate;
}

}  // namespace

void computeOpticalFlow(const cv::Mat& first, const cv::Mat& second, cv::Mat& flow,
                        int directionHint, bool wide) {
  requireFlowInputs(first, second);
  const ConcurrencyGate::Pass pass(flowJobGate());
  const cv::Size fullSize = first.size();
  const cv::Size halfSize(static_cast<int>(fullSize.width * 0.5),
                          static_cast<int>(fullSize.height * 0.5));
  cv::Mat half0, half1;
  cv::resize(first, half0, halfSize, 0.0, 0.0, cv::INTER_CUBIC);
  cv::resize(second, half1, halfSize, 0.0, 0.0, cv::INTER_CUBIC);

  cv::Mat grey0, grey1, alpha0, alpha1;
  greyAndAlpha(half0, grey0, alpha0);
  greyAndAlpha(half1, grey1, alpha1);
  half0.release();
  half1.release();

  const std::vector<cv::Mat> greys0 = buildPyramid(grey0);
  const std::vector<cv::Mat> greys1 = buildPyramid(grey1);
  const std::vector<cv::Mat> alphas0 = buildPyramid(alpha0);
  const std::vector<cv::Mat> alphas1 = buildPyramid(alpha1);

  cv::Mat levelFlow;
  for (std::size_t level = greys0.size(); level-- > 0;) {
    refineLevel(greys0[level], greys1[level], alphas0[level], alphas1[level], levelFlow,
                directionHint, wide);
    if (level > 0) {
      cv::Mat finer;
      cv::resize(levelFlow, finer, greys0[level - 1].size(), 0.0, 0.0, cv::INTER_CUBIC);
      levelFlow = finer * kLevelUpscale;
    }
  }

  cv::Mat full;
  cv::resize(levelFlow, full, fullSize, 0.0, 0.0, cv::INTER_LINEAR);
  full *= 2.0;
  cv::GaussianBlur(full, flow, cv::Size(3, 3), 1.0, 0.0, cv::BORDER_DEFAULT);
}

}  // namespace velmora
