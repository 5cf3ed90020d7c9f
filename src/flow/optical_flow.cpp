#include "flow/optical_flow.h"

#include <array>
#include <opencv2/imgproc.hpp>
#include <thread>
#include <vector>

#include "common/buffer_pool.h"
#include "common/concurrency_gate.h"
#include "common/status.h"
#include "flow/flow_pyramid.h"
#include "flow/level_refinement.h"

namespace velmora {
namespace {

// 1 / 255 as a 32-bit float: maps 8-bit values to [0, 1].
constexpr double kByteToUnit = 0.003921568859368563;

// A byte's value in [0, 1] for each of the 256 bytes, exactly as converting a byte image to
// CV_32F and then scaling it by 1/255 computes it (the conversions run once, on the 256 values).
const std::array<float, 256>& byteToUnit() {
  static const std::array<float, 256> table = [] {
    cv::Mat bytes(1, 256, CV_8U);
    for (int v = 0; v < 256; ++v) bytes.at<uchar>(0, v) = static_cast<uchar>(v);
    cv::Mat units;
    bytes.convertTo(units, CV_32F, 1.0);
    units.convertTo(units, CV_32F, kByteToUnit);
    std::array<float, 256> values{};
    for (int v = 0; v < 256; ++v) values[v] = units.at<float>(0, v);
    return values;
  }();
  return table;
}

// The grey image and the alpha of one half-size BGRA image, both CV_32F in [0, 1]; the grey
// image is lightly smoothed.
void greyAndAlpha(const cv::Mat& halfImage, cv::Mat& grey, cv::Mat& alpha) {
  cv::Mat grey8 = pooledMat();
  cv::cvtColor(halfImage, grey8, cv::COLOR_BGRA2GRAY);
  const std::array<float, 256>& unit = byteToUnit();
  grey.create(halfImage.size(), CV_32F);
  alpha.create(halfImage.size(), CV_32F);
  for (int y = 0; y < halfImage.rows; ++y) {
    const uchar* pixel = halfImage.ptr<uchar>(y);
    const uchar* grey8Row = grey8.ptr<uchar>(y);
    float* greyRow = grey.ptr<float>(y);
    float* alphaRow = alpha.ptr<float>(y);
    for (int x = 0; x < halfImage.cols; ++x) {
      greyRow[x] = unit[grey8Row[x]];
      alphaRow[x] = unit[pixel[4 * x + 3]];
    }
  }
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

// The flow input of an image that passed requireFlowInputs.
FlowInput prepareCheckedInput(const cv::Mat& image) {
  const cv::Size halfSize(static_cast<int>(image.cols * 0.5), static_cast<int>(image.rows * 0.5));
  cv::Mat half = pooledMat();
  cv::resize(image, half, halfSize, 0.0, 0.0, cv::INTER_CUBIC);
  cv::Mat grey = pooledMat();
  cv::Mat alpha = pooledMat();
  greyAndAlpha(half, grey, alpha);
  half.release();
  const std::vector<cv::Mat> greys = buildPyramid(grey);
  const std::vector<cv::Mat> alphas = buildPyramid(alpha);
  FlowInput input{image.size(), {}};
  input.levels.reserve(greys.size());
  for (std::size_t level = 0; level < greys.size(); ++level) {
    input.levels.push_back(levelImagesOf(greys[level], alphas[level]));
  }
  return input;
}

// The flow of two prepared inputs of one size.
void flowOfInputs(const FlowInput& first, const FlowInput& second, cv::Mat& flow, int directionHint,
                  bool wide) {
  // Every level works in the same memory; the flow moves between its two flow buffers.
  const LevelWorkspace workspace(first.levels[0].grey.size());
  cv::Mat levelFlow;
  for (std::size_t level = first.levels.size(); level-- > 0;) {
    refineLevel(first.levels[level], second.levels[level], levelFlow, directionHint, wide,
                workspace);
    if (level > 0) {
      const cv::Size finerSize = first.levels[level - 1].grey.size();
      cv::Mat finer = workspace.otherFlow(levelFlow, finerSize);
      cv::resize(levelFlow, finer, finerSize, 0.0, 0.0, cv::INTER_CUBIC);
      finer.convertTo(finer, -1, kLevelUpscale);
      levelFlow = finer;
    }
  }
  // The full-size steps all work in the output (the blur gives the same values in place): one
  // full-size field per job instead of three.
  cv::resize(levelFlow, flow, first.fullSize, 0.0, 0.0, cv::INTER_LINEAR);
  flow *= 2.0;
  cv::GaussianBlur(flow, flow, cv::Size(3, 3), 1.0, 0.0, cv::BORDER_DEFAULT);
}

}  // namespace

void computeOpticalFlow(const cv::Mat& first, const cv::Mat& second, cv::Mat& flow,
                        int directionHint, bool wide) {
  requireFlowInputs(first, second);
  const ConcurrencyGate::Pass pass(flowJobGate());
  const FlowInput firstInput = prepareCheckedInput(first);
  const FlowInput secondInput = prepareCheckedInput(second);
  flowOfInputs(firstInput, secondInput, flow, directionHint, wide);
}

FlowInput prepareFlowInput(const cv::Mat& image) {
  requireFlowInputs(image, image);
  const ConcurrencyGate::Pass pass(flowJobGate());
  return prepareCheckedInput(image);
}

void computeOpticalFlow(const FlowInput& first, const FlowInput& second, cv::Mat& flow,
                        int directionHint, bool wide) {
  if (first.fullSize != second.fullSize || first.levels.empty() ||
      first.levels.size() != second.levels.size()) {
    throw Failure("Optical flow: the prepared inputs differ in size.");
  }
  const ConcurrencyGate::Pass pass(flowJobGate());
  flowOfInputs(first, second, flow, directionHint, wide);
}

}  // namespace velmora
