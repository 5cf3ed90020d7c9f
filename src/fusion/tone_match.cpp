#include "fusion/tone_match.h"

#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "common/console.h"

namespace velmora {
namespace {

// Differences below this count as "the frames agree here".
constexpr int kStillDifference = 5;
// More agreeing pixels than this share: the frames already match, nothing to do.
constexpr double kStillRateLimit = 0.4;
// Quantiles of the difference list compared for the spread check, and the largest gap allowed.
constexpr double kMedianQuantile = 0.5;
constexpr double kLowQuantile = 0.3;
constexpr int kSpreadLimit = 40;
// A pixel counts as changed when its difference exceeds the median by more than this.
constexpr int kChangeMargin = 20;
// More changed pixels than this share: the scenes differ too much to match tones.
constexpr double kMaskRateLimit = 0.4;
// Side of the square that opens the change mask.
constexpr int kOpeningSide = 15;
constexpr int kCurveDegree = 3;

using Histogram = std::array<uint64_t, 256>;

cv::Mat lumaOf(const cv::Mat& image) {
  cv::Mat yuv;
  cv::cvtColor(image, yuv, cv::COLOR_BGR2YUV);
  cv::Mat luma;
  cv::extractChannel(yuv, luma, 0);
  return luma;
}

Histogram histogramOf(const cv::Mat& image) {
  Histogram counts{};
  for (int y = 0; y < image.rows; ++y) {
    const uchar* row = image.ptr<uchar>(y);
    for (int x = 0; x < image.cols; ++x) ++counts[row[x]];
  }
  return counts;
}

// Entry `index` of the ascending list of all values that the histogram counts.
int sortedEntry(const Histogram& counts, uint64_t index) {
  uint64_t seen = 0;
  for (int value = 0; value < 256; ++value) {
    seen += counts[value];
    if (index < seen) return value;
  }
  return 255;
}

// Histogram of the pixels of image where mask is 0; their number goes to counted.
Histogram unmaskedHistogram(const cv::Mat& image, const cv::Mat& mask, uint64_t& counted) {
  Histogram counts{};
  counted = 0;
  for (int y = 0; y < image.rows; ++y) {
    const uchar* row = image.ptr<uchar>(y);
    const uchar* masked = mask.ptr<uchar>(y);
    for (int x = 0; x < image.cols; ++x) {
      if (masked[x] == 0) {
        ++counts[row[x]];
        ++counted;
      }
    }
  }
  return counts;
}

std::array<float, 256> cumulativeShares(const Histogram& counts, uint64_t total) {
  std::array<float, 256> shares{};
  uint64_t sum = 0;
  for (int i = 0; i < 256; ++i) {
    sum += counts[i];
    shares[i] = static_cast<float>(sum) / static_cast<float>(total);
  }
  return shares;
}

// 255 where the difference exceeds limit, else 0; returns the number of 255s.
uint64_t thresholdChanges(const cv::Mat& difference, int limit, cv::Mat& mask) {
  mask.create(difference.size(), CV_8U);
  uint64_t changed = 0;
  for (int y = 0; y < difference.rows; ++y) {
    const uchar* d = difference.ptr<uchar>(y);
    uchar* m = mask.ptr<uchar>(y);
    for (int x = 0; x < difference.cols; ++x) {
      const bool isChanged = d[x] > limit;
      m[x] = isChanged ? 255 : 0;
      changed += isChanged;
    }
  }
  return changed;
}

// The curve at every 8-bit level: powers in single precision, each term added in double and the
// running sum rounded to single precision, then clamped to 0..255 and truncated.
cv::Mat toneCurveTable(const cv::Mat& coefficients) {
  const double* c = coefficients.ptr<double>();
  cv::Mat table(1, 256, CV_8U);
  for (int level = 0; level < 256; ++level) {
    const float x = static_cast<float>(level);
    const float x2 = x * x;
    const float x3 = x2 * x;
    float y = static_cast<float>(c[0]);
    y = static_cast<float>(y + c[1] * x);
    y = static_cast<float>(y + c[2] * x2);
    y = static_cast<float>(y + c[3] * x3);
    table.at<uchar>(level) = !(y >= 0.0f) ? 0 : y > 255.0f ? 255 : static_cast<uchar>(y);
  }
  return table;
}

}  // namespace

void matchToneToReference(cv::Mat source, cv::Mat reference, cv::Mat& target) {
  const cv::Mat sourceLuma = lumaOf(source);
  const cv::Mat referenceLuma = lumaOf(reference);
  source.release();
  reference.release();
  cv::Mat difference;
  cv::absdiff(referenceLuma, sourceLuma, difference);

  // The sorted difference list is read through its histogram.
  const Histogram differences = histogramOf(difference);
  const uint64_t count = difference.total();
  uint64_t still = 0;
  for (int value = 0; value < kStillDifference; ++value) still += differences[value];
  const float stillRate = static_cast<float>(still) / static_cast<float>(count);
  console::out("Bright diff rate: ", stillRate);
  if (stillRate > kStillRateLimit) return;

  const int median =
      sortedEntry(differences, static_cast<uint64_t>(static_cast<double>(count) * kMedianQuantile));
  const int low =
      sortedEntry(differences, static_cast<uint64_t>(static_cast<double>(count) * kLowQuantile));
  if (median - low > kSpreadLimit) {
    console::out("mean diff 50% > 30% over 40th.");
    return;
  }

  cv::Mat mask;
  const uint64_t changed = thresholdChanges(difference, median + kChangeMargin, mask);
  const cv::Mat square =
      cv::getStructuringElement(cv::MORPH_RECT, cv::Size(kOpeningSide, kOpeningSide));
  cv::erode(mask, mask, square, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
            cv::morphologyDefaultBorderValue());
  cv::dilate(mask, mask, square, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
             cv::morphologyDefaultBorderValue());
  // The raw changed area decides; the opened mask is what the histograms leave out.
  const double maskRate =
      static_cast<double>(changed) / (static_cast<double>(mask.rows) * mask.cols);
  console::out("Mask diff rate: ", maskRate);
  if (maskRate > kMaskRateLimit) return;

  LevelMap levels;
  matchHistogramLevels(sourceLuma, referenceLuma, mask, levels);
  std::vector<cv::Point2d> points;
  for (int i = 0; i < 256; ++i) points.emplace_back(i, levels[i]);
  const cv::Mat coefficients = fitPolynomial(points, kCurveDegree);
  CV_Assert(target.depth() == CV_8U && target.channels() == 3);
  cv::LUT(target, toneCurveTable(coefficients), target);
}

void matchHistogramLevels(const cv::Mat& sourceLuma, const cv::Mat& referenceLuma,
                          const cv::Mat& mask, LevelMap& map) {
  CV_Assert(sourceLuma.type() == CV_8U && referenceLuma.type() == CV_8U && mask.type() == CV_8U);
  CV_Assert(sourceLuma.size() == referenceLuma.size() && mask.size() == sourceLuma.size());
  uint64_t counted = 0;
  const Histogram sourceCounts = unmaskedHistogram(sourceLuma, mask, counted);
  const Histogram referenceCounts = unmaskedHistogram(referenceLuma, mask, counted);
  const std::array<float, 256> sourceShares = cumulativeShares(sourceCounts, counted);
  const std::array<float, 256> referenceShares = cumulativeShares(referenceCounts, counted);
  for (int i = 0; i < 256; ++i) {
    float best = 10.0f;
    unsigned bestLevel = 0;
    for (int j = 0; j < 256; ++j) {
      const float distance = std::fabs(sourceShares[i] - referenceShares[j]);
      if (distance < best) {
        best = distance;
        bestLevel = static_cast<unsigned>(j);
      }
    }
    map[i] = bestLevel;
  }
}

cv::Mat fitPolynomial(const std::vector<cv::Point2d>& points, int degree) {
  CV_Assert(degree >= 0 && !points.empty());
  const int rows = static_cast<int>(points.size());
  cv::Mat X(rows, degree + 1, CV_64F);
  cv::Mat Y(rows, 1, CV_64F);
  for (int r = 0; r < rows; ++r) {
    double* powers = X.ptr<double>(r);
    for (int k = 0; k <= degree; ++k) powers[k] = std::pow(points[r].x, k);
    Y.at<double>(r) = points[r].y;
  }
  cv::Mat coefficients = (X.t() * X).inv(cv::DECOMP_LU) * X.t() * Y;
  return coefficients;
}

}  // namespace velmora
