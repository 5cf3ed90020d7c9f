#include "fusion/pyramid.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "common/buffer_pool.h"

namespace velmora {
namespace {

// Weight added to each exposure's top-level luma weight so that the sum never vanishes.
constexpr float kTopWeightFloor = 1e-12f;
// Share of the blurred fine band of an exposure's top level added to its top luma weight.
constexpr float kTopDetailGain = 1.5f;
// The 3 x 3 Gaussian (sigma 1) that smooths the top luma weights and the fine band.
const cv::Size kTopBlurKernel(3, 3);
constexpr double kTopBlurSigma = 1.0;

// A header of `size` and `type` over the memory of scratch, which grows when it is too small.
// The header does not own the memory: it is valid while scratch keeps it.
cv::Mat scratchView(cv::Mat& scratch, cv::Size size, int type) {
  const size_t bytes = static_cast<size_t>(size.area()) * CV_ELEM_SIZE(type);
  if (!scratch.isContinuous() || scratch.total() * scratch.elemSize() < bytes) {
    scratch.create(size, type);
  }
  return cv::Mat(size, type, scratch.data);
}

// level k-1 += pyrUp(level k), from the top down; upsampled levels go through scratch.
cv::Mat collapseWithScratch(Pyramid& pyramid, cv::Mat& scratch) {
  if (pyramid.empty()) return cv::Mat();
  for (size_t k = pyramid.size() - 1; k >= 1; --k) {
    cv::Mat& finer = pyramid[k - 1];
    cv::Mat up = scratchView(scratch, finer.size(), finer.type());
    cv::pyrUp(pyramid[k], up, finer.size(), cv::BORDER_DEFAULT);
    finer += up;
    pyramid[k].release();
  }
  return pyramid[0];
}

// result += weight * (values - up), row by row over CV_32F images of one size.
void accumulateBand(cv::Mat& result, const cv::Mat& weight, const cv::Mat& values,
                    const cv::Mat& up) {
  const int width = result.cols;
  for (int y = 0; y < result.rows; ++y) {
    float* r = result.ptr<float>(y);
    const float* w = weight.ptr<float>(y);
    const float* v = values.ptr<float>(y);
    const float* u = up.ptr<float>(y);
    for (int x = 0; x < width; ++x) r[x] += w[x] * (v[x] - u[x]);
  }
}

// The same for the full-size level, whose values come again from the reader, so that the plane
// itself need not outlive its pyrDown.
void accumulateFullBand(cv::Mat& result, const cv::Mat& weight, const ExposureRowReader& readRow,
                        int exposure, int channel, const cv::Mat& up, std::vector<float>& row) {
  const int width = result.cols;
  for (int y = 0; y < result.rows; ++y) {
    readRow(exposure, channel, y, row.data());
    float* r = result.ptr<float>(y);
    const float* w = weight.ptr<float>(y);
    const float* u = up.ptr<float>(y);
    for (int x = 0; x < width; ++x) r[x] += w[x] * (row[x] - u[x]);
  }
}

// result += weight * values.
void accumulateProduct(cv::Mat& result, const cv::Mat& weight, const cv::Mat& values) {
  const int width = result.cols;
  for (int y = 0; y < result.rows; ++y) {
    float* r = result.ptr<float>(y);
    const float* w = weight.ptr<float>(y);
    const float* v = values.ptr<float>(y);
    for (int x = 0; x < width; ++x) r[x] += w[x] * v[x];
  }
}

// Top-level luma weight of one exposure: its blurred Gaussian weight, plus, when withDetail, the
// blurred absolute fine band that its top low-pass image still holds.
cv::Mat topLumaWeight(const cv::Mat& topWeight, const cv::Mat& topLowPass, bool withDetail) {
  cv::Mat blurred;
  cv::GaussianBlur(topWeight, blurred, kTopBlurKernel, kTopBlurSigma, kTopBlurSigma,
                   cv::BORDER_DEFAULT);
  if (!withDetail) return blurred;
  cv::Mat detail = cv::abs(buildLaplacianPyramid(topLowPass, 2)[0]);
  cv::GaussianBlur(detail, detail, kTopBlurKernel, kTopBlurSigma, kTopBlurSigma,
                   cv::BORDER_DEFAULT);
  cv::Mat weight;
  cv::scaleAdd(detail, kTopDetailGain, blurred, weight);
  return weight;
}

// sum = weight + floor for the first exposure, sum + weight + floor for every later one.
void accumulateTopWeight(cv::Mat& sum, const cv::Mat& weight, bool first) {
  if (first) sum.create(weight.size(), CV_32F);
  for (int y = 0; y < weight.rows; ++y) {
    float* s = sum.ptr<float>(y);
    const float* w = weight.ptr<float>(y);
    for (int x = 0; x < weight.cols; ++x) {
      s[x] = first ? w[x] + kTopWeightFloor : s[x] + w[x] + kTopWeightFloor;
    }
  }
}

}  // namespace

cv::Size halfPyramidSize(cv::Size size) {
  return cv::Size(static_cast<int>(std::lround(size.width * 0.5)),
                  static_cast<int>(std::lround(size.height * 0.5)));
}

int blendLevelCount(cv::Size size) {
  const int shorter = std::min(size.width, size.height);
  if (shorter < 1) return 1;
  const float shorterSide = static_cast<float>(shorter);
  const float quotient = std::log(shorterSide) / std::log(2.0f);
  const int fullCount = static_cast<int>(quotient);
  return std::max(1, fullCount - 2);
}

std::vector<cv::Size> pyramidLevelSizes(cv::Size size, int levels) {
  std::vector<cv::Size> sizes{size};
  while (static_cast<int>(sizes.size()) < levels) sizes.push_back(halfPyramidSize(sizes.back()));
  return sizes;
}

Pyramid buildGaussianPyramid(const cv::Mat& image, int levels) {
  CV_Assert(!image.empty());
  Pyramid pyramid{image.clone()};
  while (static_cast<int>(pyramid.size()) < levels) {
    const cv::Mat& last = pyramid.back();
    cv::Mat down;
    cv::pyrDown(last, down, halfPyramidSize(last.size()), cv::BORDER_DEFAULT);
    pyramid.push_back(down);
  }
  return pyramid;
}

Pyramid buildLaplacianPyramid(const cv::Mat& image, int levels) {
  CV_Assert(!image.empty());
  if (levels < 2) return Pyramid{image.clone()};
  Pyramid pyramid;
  cv::Mat cur = image;
  for (int k = 0; k + 1 < levels; ++k) {
    cv::Mat down;
    cv::Mat up;
    cv::pyrDown(cur, down, halfPyramidSize(cur.size()), cv::BORDER_DEFAULT);
    cv::pyrUp(down, up, cur.size(), cv::BORDER_DEFAULT);
    pyramid.push_back(cur - up);
    cur = down;
  }
  pyramid.push_back(cur);
  return pyramid;
}

cv::Mat collapseLaplacianPyramid(Pyramid& pyramid) {
  cv::Mat scratch;
  return collapseWithScratch(pyramid, scratch);
}

cv::Mat blendExposureChannel(int channel, const ExposureRowReader& readRow,
                             const std::vector<cv::Mat>& weights, BlendBuffers& buffers) {
  CV_Assert(!weights.empty() && !weights[0].empty());
  const cv::Size size = weights[0].size();
  for (const cv::Mat& weight : weights) CV_Assert(weight.type() == CV_32F && weight.size() == size);
  const int exposureCount = static_cast<int>(weights.size());
  const int levels = blendLevelCount(size);
  const int top = levels - 1;
  const std::vector<cv::Size> sizes = pyramidLevelSizes(size, levels);
  // Exposures before this index get the detail term in the luma top level.
  const int detailedExposures = static_cast<int>(std::ceil(exposureCount * 0.5)) - 1;

  Pyramid result;
  for (const cv::Size& levelSize : sizes) {
    result.push_back(pooledMat(levelSize, CV_32F));
    result.back().setTo(cv::Scalar::all(0));
  }
  cv::Mat topWeightSum;
  cv::Mat& scratch = buffers.plane;
  // Holds an exposure's full-size plane until its pyrDown, then the upsampled halves of each
  // level, and finally the upsampled levels of the collapse.
  cv::Mat plane = scratchView(scratch, size, CV_32F);
  // Low-pass images and weights of the levels below the full size; pyrDown writes into them in
  // place when their sizes already fit.
  Pyramid& lowPassLevels = buffers.lowPass;
  Pyramid& weightLevels = buffers.weights;
  lowPassLevels.resize(levels, pooledMat());
  weightLevels.resize(levels, pooledMat());
  std::vector<float> row(size.width);

  for (int i = 0; i < exposureCount; ++i) {
    for (int y = 0; y < size.height; ++y) readRow(i, channel, y, plane.ptr<float>(y));
    cv::Mat lowPass = plane;
    cv::Mat weight = weights[i];
    for (int k = 0; k < top; ++k) {
      cv::Mat& down = lowPassLevels[k + 1];
      cv::pyrDown(lowPass, down, sizes[k + 1], cv::BORDER_DEFAULT);
      // At level 0 this overwrites the plane, which is read again row by row below.
      cv::Mat up = scratchView(scratch, sizes[k], CV_32F);
      cv::pyrUp(down, up, sizes[k], cv::BORDER_DEFAULT);
      if (k == 0) {
        accumulateFullBand(result[0], weight, readRow, i, channel, up, row);
      } else {
        accumulateBand(result[k], weight, lowPass, up);
      }
      cv::pyrDown(weight, weightLevels[k + 1], sizes[k + 1], cv::BORDER_DEFAULT);
      weight = weightLevels[k + 1];
      lowPass = down;
    }
    if (channel == 0) {
      const cv::Mat topWeight = topLumaWeight(weight, lowPass, i < detailedExposures);
      accumulateProduct(result[top], topWeight, lowPass);
      accumulateTopWeight(topWeightSum, topWeight, i == 0);
    } else {
      accumulateProduct(result[top], weight, lowPass);
    }
  }
  if (channel == 0) cv::divide(result[top], topWeightSum, result[top]);
  return collapseWithScratch(result, scratch);
}

void blendExposurePyramids(std::vector<cv::Mat> exposures, std::vector<cv::Mat> weights,
                           cv::Mat& out) {
  CV_Assert(!exposures.empty() && exposures.size() == weights.size());
  const cv::Size size = exposures[0].size();
  for (size_t i = 0; i < exposures.size(); ++i) {
    CV_Assert(exposures[i].type() == CV_32FC3 && exposures[i].size() == size);
    CV_Assert(weights[i].type() == CV_32F && weights[i].size() == size);
  }
  const ExposureRowReader readRow = [&exposures](int exposure, int channel, int y, float* values) {
    const float* pixels = exposures[exposure].ptr<float>(y);
    const int width = exposures[exposure].cols;
    for (int x = 0; x < width; ++x) values[x] = pixels[3 * x + channel];
  };
  std::vector<cv::Mat> channels(3);
  BlendBuffers buffers;
  for (int c = 0; c < 3; ++c) channels[c] = blendExposureChannel(c, readRow, weights, buffers);
  cv::merge(channels, out);
}

}  // namespace velmora
