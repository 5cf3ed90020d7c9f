#include "fusion/exposure_fusion.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common/buffer_pool.h"
#include "fusion/color_conversion.h"
#include "fusion/pyramid.h"
#include "fusion/white_balance.h"

namespace velmora {
namespace {

constexpr int kExposureCount = 3;
// Shadow lift of the first exposure: a pixel whose brightest channel V is below kLiftLimit is
// multiplied by (kLiftLimit - V) / kLiftLimit * kLiftStrength + 1 (black becomes 1.8 times).
constexpr float kLiftLimit = 150.0f;
constexpr float kLiftStrength = 0.8f;
// 8-bit values to 0..1.
constexpr float kUnitScale = 0.003921569f;
// Well-exposedness: a Gaussian around kBestLuma, scaled by 1 / sigma^2 with sigma 0.2 (both in
// single precision); luma above kOverExposedLuma never contributes.
constexpr float kBestLuma = 0.6f;
constexpr float kInverseSigmaSquared = 24.999998f;
constexpr float kOverExposedLuma = 0.98f;
// Raises every exposure's weight so that no sum is exactly zero.
constexpr float kWeightFloor = 1e-12f;
// Below this first sum no exposure is usable and the first one is taken.
constexpr float kUnusableSum = 1e-6f;
// Fixed preference of the three exposures, applied after the data-driven normalisation.
constexpr std::array<float, kExposureCount> kPreference = {3.0f, 7.0f, 12.0f};
// The fused image is stretched only when every channel's maximum exceeds this.
constexpr float kStretchThreshold = 0.9f;

// Reads one exposure in colour. A path that cannot be read (an empty one included) raises
// cv::Exception before the decoder is asked, which would log a warning from the fusion's thread.
cv::Mat readExposure(const std::string& path) {
  char firstByte = 0;
  std::ifstream file(path, std::ios::binary);
  cv::Mat image;
  if (file.get(firstByte)) {
    file.close();
    image = cv::imread(path, cv::IMREAD_COLOR);
  }
  if (image.empty()) CV_Error(cv::Error::StsError, "Cannot read exposure \"" + path + "\".");
  return image;
}

// Channel `Channel` (Y, U or V, in 0..1 scale) of a row of 8-bit B, G and R values, with the
// shadow lift when Lift is set. The lift is written without float comparisons and branches so
// that the compiler can vectorise the loop: max(0, 150 - V) in integers is exactly the float
// 150 - V below 150, and a deficit of 0 gives the factor 1, which leaves a pixel as it is.
template <int Channel, bool Lift>
void exposureRowChannel(const uchar* blue, const uchar* green, const uchar* red, int width,
                        float* values) {
  const int liftLimit = static_cast<int>(kLiftLimit);
  for (int x = 0; x < width; ++x) {
    float bgr[3] = {static_cast<float>(blue[x]), static_cast<float>(green[x]),
                    static_cast<float>(red[x])};
    if (Lift) {
      const int greenOrRed = green[x] < red[x] ? red[x] : green[x];
      const int brightest = blue[x] < greenOrRed ? greenOrRed : blue[x];
      const int deficit = liftLimit - brightest > 0 ? liftLimit - brightest : 0;
      const float factor = static_cast<float>(deficit) / kLiftLimit * kLiftStrength + 1.0f;
      for (float& value : bgr) value *= factor;
    }
    for (float& value : bgr) value *= kUnitScale;
    float yuv[3];
    bgrPixelToYuv(bgr, yuv);
    values[x] = yuv[Channel];
  }
}

template <bool Lift>
void exposureRowChannel(const std::vector<cv::Mat>& bgr, int channel, float* values) {
  const uchar* b = bgr[0].ptr<uchar>();
  const uchar* g = bgr[1].ptr<uchar>();
  const uchar* r = bgr[2].ptr<uchar>();
  switch (channel) {
    case 0:
      return exposureRowChannel<0, Lift>(b, g, r, bgr[0].cols, values);
    case 1:
      return exposureRowChannel<1, Lift>(b, g, r, bgr[0].cols, values);
    default:
      return exposureRowChannel<2, Lift>(b, g, r, bgr[0].cols, values);
  }
}

// Reads rows of the 8-bit shots as the blend's Y U V planes; the first shot's shadows are
// lifted. One reader per fusion (it keeps its row buffers).
class ShotRowReader {
 public:
  explicit ShotRowReader(const std::array<cv::Mat, kExposureCount>& shots) : shots_(shots) {
    for (int c = 0; c < 3; ++c) channels_.emplace_back(1, shots[0].cols, CV_8U);
  }

  void operator()(int exposure, int channel, int y, float* values) {
    cv::split(shots_[exposure].row(y), channels_);
    if (exposure == 0) {
      exposureRowChannel<true>(channels_, channel, values);
    } else {
      exposureRowChannel<false>(channels_, channel, values);
    }
  }

 private:
  const std::array<cv::Mat, kExposureCount>& shots_;
  std::vector<cv::Mat> channels_;
};

// Y, U, V planes back to B, G, R in place; returns the maximum of each channel (from 0). Four
// pixels at a time where the build has SSE2, with yuvPixelToBgr's operations in its order; each
// lane keeps its own maxima, which are merged at the end (a maximum does not depend on the order
// its values come in: a zero never displaces the starting +0 and a NaN never displaces anything,
// in max(value, maximum) as in std::max(maximum, value)).
std::array<float, 3> planesToBgr(std::vector<cv::Mat>& planes) {
  std::array<float, 3> maxima = {0.0f, 0.0f, 0.0f};
#if defined(__SSE2__)
  __m128 laneMaxima[3] = {_mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()};
#endif
  const int width = planes[0].cols;
  for (int y = 0; y < planes[0].rows; ++y) {
    float* p0 = planes[0].ptr<float>(y);
    float* p1 = planes[1].ptr<float>(y);
    float* p2 = planes[2].ptr<float>(y);
    int x = 0;
#if defined(__SSE2__)
    for (; x + 4 <= width; x += 4) {
      const __m128 luma = _mm_loadu_ps(p0 + x);
      const __m128 u = _mm_loadu_ps(p1 + x);
      const __m128 v = _mm_loadu_ps(p2 + x);
      const __m128 bgr[3] = {_mm_add_ps(luma, _mm_mul_ps(_mm_set1_ps(2.03f), u)),
                             _mm_sub_ps(_mm_sub_ps(luma, _mm_mul_ps(_mm_set1_ps(0.39f), u)),
                                        _mm_mul_ps(_mm_set1_ps(0.58f), v)),
                             _mm_add_ps(luma, _mm_mul_ps(_mm_set1_ps(1.14f), v))};
      _mm_storeu_ps(p0 + x, bgr[0]);
      _mm_storeu_ps(p1 + x, bgr[1]);
      _mm_storeu_ps(p2 + x, bgr[2]);
      for (int c = 0; c < 3; ++c) laneMaxima[c] = _mm_max_ps(bgr[c], laneMaxima[c]);
    }
#endif
    for (; x < width; ++x) {
      const float yuv[3] = {p0[x], p1[x], p2[x]};
      float bgr[3];
      yuvPixelToBgr(yuv, bgr);
      p0[x] = bgr[0];
      p1[x] = bgr[1];
      p2[x] = bgr[2];
      maxima[0] = std::max(maxima[0], bgr[0]);
      maxima[1] = std::max(maxima[1], bgr[1]);
      maxima[2] = std::max(maxima[2], bgr[2]);
    }
  }
#if defined(__SSE2__)
  for (int c = 0; c < 3; ++c) {
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, laneMaxima[c]);
    for (float lane : lanes) maxima[c] = std::max(maxima[c], lane);
  }
#endif
  return maxima;
}

// B, G, R planes in 0..1 to an 8-bit image: stretched by the smallest channel maximum m
// (x -> min(m, max(0, x)) / m) when every maximum exceeds the threshold, then times 255 and
// saturated. The planes are overwritten. Clamping and the final conversion run through OpenCV's
// vectorised element-wise functions (convertTo computes x * 255 and rounds to the nearest
// byte, as saturate_cast does).
cv::Mat planesTo8Bit(std::vector<cv::Mat>& planes, const std::array<float, 3>& maxima) {
  const bool stretch = maxima[0] > kStretchThreshold && maxima[1] > kStretchThreshold &&
                       maxima[2] > kStretchThreshold;
  const float ceiling = std::min(maxima[0], std::min(maxima[1], maxima[2]));
  std::vector<cv::Mat> bytes{pooledMat(), pooledMat(), pooledMat()};
  for (int c = 0; c < 3; ++c) {
    cv::Mat& plane = planes[c];
    if (stretch) {
      cv::max(plane, 0.0, plane);
      cv::min(plane, ceiling, plane);
      for (int y = 0; y < plane.rows; ++y) {
        float* row = plane.ptr<float>(y);
        for (int x = 0; x < plane.cols; ++x) row[x] = row[x] / ceiling;
      }
    }
    plane.convertTo(bytes[c], CV_8U, 255.0);
    plane.release();
  }
  cv::Mat image = pooledMat();
  cv::merge(bytes, image);
  return image;
}

void requireSameSize(const cv::Mat& first, const cv::Mat& other, const std::string& path) {
  if (other.size() != first.size()) {
    CV_Error(cv::Error::StsUnmatchedSizes,
             "Exposure \"" + path + "\" differs in size from the first exposure.");
  }
}

}  // namespace

cv::Mat wellExposedness(const cv::Mat& image) {
  CV_Assert(image.depth() == CV_32F && !image.empty());
  const int stride = image.channels();
  cv::Mat weight = pooledMat(image.size(), CV_32F);
  for (int y = 0; y < image.rows; ++y) {
    const float* luma = image.ptr<float>(y);
    float* w = weight.ptr<float>(y);
    for (int x = 0; x < image.cols; ++x) {
      const float offset = luma[x * stride] - kBestLuma;
      w[x] = offset * offset * -0.5f * kInverseSigmaSquared;
    }
  }
  cv::exp(weight, weight);
  for (int y = 0; y < image.rows; ++y) {
    const float* luma = image.ptr<float>(y);
    float* w = weight.ptr<float>(y);
    for (int x = 0; x < image.cols; ++x) {
      if (luma[x * stride] > kOverExposedLuma) w[x] = 0.0f;
    }
  }
  return weight;
}

namespace {

// weight = weight * wellExposedness(exposure) + 1e-12 (exposedness to the power 1). An empty
// weight stands for all ones; it then takes over the exposedness map's buffer.
void weighByExposedness(const cv::Mat& exposure, cv::Mat& weight) {
  const cv::Mat exposedness = wellExposedness(exposure);
  const bool allOnes = weight.empty();
  if (allOnes) weight = exposedness;
  for (int y = 0; y < weight.rows; ++y) {
    float* w = weight.ptr<float>(y);
    const float* e = exposedness.ptr<float>(y);
    if (allOnes) {
      for (int x = 0; x < weight.cols; ++x) w[x] = e[x] + kWeightFloor;
    } else {
      for (int x = 0; x < weight.cols; ++x) w[x] = w[x] * e[x] + kWeightFloor;
    }
  }
}

// The normalised weights of one pixel: sum 1, then the fixed preference, then sum 1 again;
// where the first sum is below kUnusableSum the first exposure takes all.
inline void normalisePixelWeights(float& w1, float& w2, float& w3) {
  const float sum1 = w1 + w2 + w3;
  const float a = w1 / sum1 * kPreference[0];
  const float b = w2 / sum1 * kPreference[1];
  const float c = w3 / sum1 * kPreference[2];
  const float sum2 = a + b + c;
  if (sum1 < kUnusableSum) {
    w1 = 1.0f;
    w2 = 0.0f;
    w3 = 0.0f;
  } else {
    w1 = a / sum2;
    w2 = b / sum2;
    w3 = c / sum2;
  }
}

// Normalises three weighted maps to sum 1 per pixel, applies the fixed preference and
// normalises again; where the first sum is below kUnusableSum the first exposure takes all.
// Four pixels at a time where the build has SSE2, each lane the same operations in the same
// order as normalisePixelWeights (an unordered sum, NaN, fails the test as it does there).
void normaliseExposureWeights(std::vector<cv::Mat>& weights) {
  const int width = weights[0].cols;
  for (int y = 0; y < weights[0].rows; ++y) {
    float* w1 = weights[0].ptr<float>(y);
    float* w2 = weights[1].ptr<float>(y);
    float* w3 = weights[2].ptr<float>(y);
    int x = 0;
#if defined(__SSE2__)
    const __m128 preference1 = _mm_set1_ps(kPreference[0]);
    const __m128 preference2 = _mm_set1_ps(kPreference[1]);
    const __m128 preference3 = _mm_set1_ps(kPreference[2]);
    const __m128 unusable = _mm_set1_ps(kUnusableSum);
    const __m128 one = _mm_set1_ps(1.0f);
    for (; x + 4 <= width; x += 4) {
      const __m128 v1 = _mm_loadu_ps(w1 + x);
      const __m128 v2 = _mm_loadu_ps(w2 + x);
      const __m128 v3 = _mm_loadu_ps(w3 + x);
      const __m128 sum1 = _mm_add_ps(_mm_add_ps(v1, v2), v3);
      const __m128 a = _mm_mul_ps(_mm_div_ps(v1, sum1), preference1);
      const __m128 b = _mm_mul_ps(_mm_div_ps(v2, sum1), preference2);
      const __m128 c = _mm_mul_ps(_mm_div_ps(v3, sum1), preference3);
      const __m128 sum2 = _mm_add_ps(_mm_add_ps(a, b), c);
      const __m128 takeFirst = _mm_cmplt_ps(sum1, unusable);
      const auto choose = [takeFirst](__m128 first, __m128 normal) {
        return _mm_or_ps(_mm_and_ps(takeFirst, first), _mm_andnot_ps(takeFirst, normal));
      };
      _mm_storeu_ps(w1 + x, choose(one, _mm_div_ps(a, sum2)));
      _mm_storeu_ps(w2 + x, choose(_mm_setzero_ps(), _mm_div_ps(b, sum2)));
      _mm_storeu_ps(w3 + x, choose(_mm_setzero_ps(), _mm_div_ps(c, sum2)));
    }
#endif
    for (; x < width; ++x) normalisePixelWeights(w1[x], w2[x], w3[x]);
  }
}

}  // namespace

void computeExposureWeights(const std::vector<cv::Mat>& exposures, std::vector<cv::Mat>& weights) {
  CV_Assert(exposures.size() == kExposureCount && weights.size() == kExposureCount);
  const cv::Size size = exposures[0].size();
  for (int i = 0; i < kExposureCount; ++i) {
    CV_Assert(exposures[i].depth() == CV_32F && exposures[i].size() == size);
    CV_Assert(weights[i].type() == CV_32F && weights[i].size() == size);
    // Maps that share a buffer (copies of one Mat) would overwrite each other.
    for (int j = 0; j < i; ++j) {
      if (weights[i].data == weights[j].data) weights[i] = weights[i].clone();
    }
  }
  for (int i = 0; i < kExposureCount; ++i) weighByExposedness(exposures[i], weights[i]);
  normaliseExposureWeights(weights);
}

bool fuseExposures(const std::string& path1, const std::string& path2, const std::string& path3,
                   cv::Mat& out, float gain1, float gain2, float gain3) {
  return fuseExposures({}, {path1, path2, path3}, out, gain1, gain2, gain3);
}

bool fuseExposures(std::array<cv::Mat, 3> exposures, const std::array<std::string, 3>& paths,
                   cv::Mat& out, float gain1, float gain2, float gain3) {
  std::array<cv::Mat, kExposureCount> shots = std::move(exposures);
  for (int k = 0; k < kExposureCount; ++k) {
    if (shots[k].empty()) shots[k] = readExposure(paths[k]);
    if (shots[k].type() != CV_8UC3) {
      CV_Error(cv::Error::StsBadArg, "Exposure \"" + paths[k] + "\" is not 8-bit BGR.");
    }
    if (k > 0) requireSameSize(shots[0], shots[k], paths[k]);
  }
  const cv::Size size = shots[0].size();

  // The float Y U V exposures are never held whole: the blend reads them row by row from the
  // 8-bit shots, lifting the first one's shadows on the way.
  ShotRowReader shotReader(shots);
  const ExposureRowReader readRow = [&shotReader](int exposure, int channel, int y, float* values) {
    shotReader(exposure, channel, y, values);
  };

  // Weights one exposure at a time: its luma plane goes through the plane buffer that the
  // blends then reuse.
  std::vector<cv::Mat> weights(kExposureCount);
  BlendBuffers buffers;
  buffers.plane = pooledMat(size, CV_32F);
  for (int i = 0; i < kExposureCount; ++i) {
    for (int y = 0; y < size.height; ++y) readRow(i, 0, y, buffers.plane.ptr<float>(y));
    weighByExposedness(buffers.plane, weights[i]);
  }
  normaliseExposureWeights(weights);

  std::vector<cv::Mat> planes(3);
  for (int c = 0; c < 3; ++c) planes[c] = blendExposureChannel(c, readRow, weights, buffers);
  buffers = BlendBuffers();
  weights.clear();
  for (cv::Mat& shot : shots) shot.release();

  const std::array<float, 3> maxima = planesToBgr(planes);
  cv::Mat fused = planesTo8Bit(planes, maxima);
  planes.clear();
  applyWhiteBalanceGains(fused, gain1, gain2, gain3);
  out = fused;
  return true;
}

}  // namespace velmora
