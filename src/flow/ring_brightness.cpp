#include "flow/ring_brightness.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <string>

#include "common/parallel_items.h"
#include "common/status.h"
#include "flow/pixel_rounding.h"

namespace velmora {
namespace {

// Start of the first image's strip (200 degrees), its width (20 degrees), start of the second
// image's strip (140 degrees) and the width of image 0's ramp (80 degrees), as frame fractions.
constexpr double kFirstStripStart = 0.5555556;
constexpr double kStripWidth = 0.055555556;
constexpr double kSecondStripStart = 0.3888889;
constexpr float kRampStart = 0.3888889f;
constexpr float kRampWidth = 0.22222222f;

// The sum of the HSV value channel over the strip's middle rows. The value of an 8-bit pixel is
// the largest of its three colour bytes, taken here without converting the strip to HSV.
float valueSum(const cv::Mat& image, const cv::Rect& strip) {
  const int channels = image.channels();
  const int top = strip.y + static_cast<int>(strip.height * 0.1);
  const int rows = static_cast<int>(strip.height * 0.8);
  float sum = 0.0f;
  for (int y = top; y < top + rows; ++y) {
    const uchar* pixel = image.ptr<uchar>(y) + strip.x * channels;
    for (int x = 0; x < strip.width; ++x, pixel += channels) {
      sum += static_cast<float>(std::max({pixel[0], pixel[1], pixel[2]}));
    }
  }
  return sum;
}

void requireStrip(const cv::Mat& image, const cv::Rect& strip) {
  if (strip.width <= 0 || strip.height <= 0 ||
      (strip & cv::Rect(0, 0, image.cols, image.rows)) != strip) {
    throw Failure("Ring brightness: the strip " + std::to_string(strip.width) + "x" +
                  std::to_string(strip.height) + " at column " + std::to_string(strip.x) +
                  " does not fit an image of " + std::to_string(image.cols) + "x" +
                  std::to_string(image.rows) + ".");
  }
}

// Applies `lut` to the colour channels of an 8-bit BGR or BGRA image, leaving alpha.
void applyToColours(cv::Mat& image, const uchar* lut) {
  const int channels = image.channels();
  for (int y = 0; y < image.rows; ++y) {
    uchar* pixel = image.ptr<uchar>(y);
    for (int x = 0; x < image.cols; ++x, pixel += channels) {
      pixel[0] = lut[pixel[0]];
      pixel[1] = lut[pixel[1]];
      pixel[2] = lut[pixel[2]];
    }
  }
}

void applyConstantGain(cv::Mat& image, float product, float normaliser) {
  uchar lut[256];
  for (int v = 0; v < 256; ++v) {
    lut[v] = clampRoundToByte(static_cast<float>(v) * product / normaliser);
  }
  applyToColours(image, lut);
}

// Image 0: per column x, t = clamp((x - 0.3888889 W) / (0.22222222 W), 0, 1) and the gain
// (1 - t) x g(6) / N + t x 1 / N. Each run of columns with one gain (all columns outside the
// ramp share one each) gets the byte table of that gain.
void applyClosingRamp(cv::Mat& image, const RingGains& gains, unsigned frameWidth,
                      cv::Range columns) {
  const float width = static_cast<float>(frameWidth);
  const float ringProduct = gains.products[kFullRing - 1];
  std::vector<uchar> tables;
  std::vector<std::size_t> tableOfColumn(image.cols);
  float previous = 0.0f;
  for (int x = columns.start; x < columns.end; ++x) {
    float t = (static_cast<float>(x) - width * kRampStart) / (width * kRampWidth);
    t = std::min(std::max(t, 0.0f), 1.0f);
    const float gain = (1.0f - t) * ringProduct / gains.normaliser + t * 1.0f / gains.normaliser;
    if (x == columns.start || !(gain == previous)) {
      for (int v = 0; v < 256; ++v) {
        tables.push_back(clampRoundToByte(static_cast<float>(v) * gain));
      }
    }
    tableOfColumn[x] = tables.size() - 256;
    previous = gain;
  }
  const int channels = image.channels();
  for (int y = 0; y < image.rows; ++y) {
    uchar* pixel = image.ptr<uchar>(y) + columns.start * channels;
    for (int x = columns.start; x < columns.end; ++x, pixel += channels) {
      const uchar* table = tables.data() + tableOfColumn[x];
      pixel[0] = table[pixel[0]];
      pixel[1] = table[pixel[1]];
      pixel[2] = table[pixel[2]];
    }
  }
}

}  // namespace

BrightnessStrips brightnessStrips(unsigned frameWidth, unsigned frameHeight) {
  const int width = static_cast<int>(frameWidth * kStripWidth);
  const int height = static_cast<int>(frameHeight);
  return {cv::Rect(static_cast<int>(frameWidth * kFirstStripStart), 0, width, height),
          cv::Rect(static_cast<int>(frameWidth * kSecondStripStart), 0, width, height)};
}

float brightnessRatio(const cv::Mat& first, const cv::Mat& second, const BrightnessStrips& strips) {
  requireStrip(first, strips.inFirst);
  requireStrip(second, strips.inSecond);
  return valueSum(first, strips.inFirst) / valueSum(second, strips.inSecond);
}

RingGains ringGains(const std::array<float, kFullRing>& ratios) {
  RingGains gains{};
  float product = ratios[0];
  gains.products[0] = product;
  for (int k = 1; k < kFullRing; ++k) {
    product = product * ratios[k];
    gains.products[k] = product;
  }
  float smallest = 99999.0f;
  float largest = -1.0f;
  float sum = 0.0f;
  for (float g : gains.products) {
    if (g < smallest) smallest = g;
    if (g > largest) largest = g;
    sum += g;
  }
  gains.normaliser = (sum - smallest - largest) * 0.25f;
  return gains;
}

void equaliseRingBrightness(std::vector<cv::Mat>& images, int count, unsigned frameWidth,
                            unsigned frameHeight, cv::Range columns) {
  if (count != kFullRing) return;
  for (const cv::Mat& image : images) {
    if (image.type() != CV_8UC3 && image.type() != CV_8UC4) {
      throw Failure("Ring brightness: the images must be 8-bit BGR or BGRA.");
    }
    if (columns != cv::Range::all() &&
        (columns.start < 0 || columns.start > columns.end || columns.end > image.cols)) {
      throw Failure("Ring brightness: the columns to equalise lie outside the images.");
    }
  }
  if (columns == cv::Range::all()) columns = cv::Range(0, images[0].cols);
  const BrightnessStrips strips = brightnessStrips(frameWidth, frameHeight);
  std::array<float, kFullRing> ratios{};
  runForEachItem(kFullRing, [&](std::size_t i) {
    ratios[i] = brightnessRatio(images[i], images[(i + 1) % kFullRing], strips);
  });
  const RingGains gains = ringGains(ratios);
  runForEachItem(kFullRing, [&](std::size_t k) {
    if (k == 0) {
      applyClosingRamp(images[0], gains, frameWidth, columns);
    } else {
      cv::Mat part = images[k].colRange(columns);
      applyConstantGain(part, gains.products[k - 1], gains.normaliser);
    }
  });
}

}  // namespace velmora
