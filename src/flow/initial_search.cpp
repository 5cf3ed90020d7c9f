#include "flow/initial_search.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "common/status.h"

namespace velmora {
namespace {

struct SearchRange {
  int minDx, maxDx, minDy, maxDy;
};

bool searchRangeOf(int hint, SearchRange& range) {
  switch (hint) {
    case kHintRightward:
      range = {0, 5, -1, 1};
      return true;
    case kHintDownward:
      range = {-1, 1, 0, 5};
      return true;
    case kHintLeftward:
      range = {-5, 0, -1, 1};
      return true;
    case kHintUpward:
      range = {-1, 1, -5, 0};
      return true;
    default:
      return false;
  }
}

void requireSameFloatImages(const cv::Mat& grey0, const cv::Mat& alpha0, const cv::Mat& grey1,
                            const cv::Mat& alpha1) {
  for (const cv::Mat* image : {&grey0, &alpha0, &grey1, &alpha1}) {
    if (image->type() != CV_32FC1 || image->size() != grey0.size()) {
      throw Failure("Flow search: grey and alpha images must be 32-bit float of one size.");
    }
  }
}

// The image itself when its rows follow each other without gaps, else a compact copy, so that two
// images of one size share one row stride.
cv::Mat continuous(const cv::Mat& image) {
  return image.isContinuous() ? image : image.clone();
}

// The part of the 21 x 21 window around a pixel p of the first image that lies inside it, read
// once: per offset (row by row) the first grey value, the first alpha and the offset itself. The
// patch cost of p against any q of the second image then only reads the second image.
class PatchWindow {
 public:
  explicit PatchWindow(const cv::Mat& secondLayout) : secondStride_(secondLayout.step1()) {
    const int side = 2 * kPatchRadius + 1;
    offsets_.reserve(side * side);
  }

  void gather(const cv::Mat& grey0, const cv::Mat& alpha0, cv::Point p) {
    offsets_.clear();
    p_ = p;
    const int top = std::max(p.y - kPatchRadius, 0);
    const int bottom = std::min(p.y + kPatchRadius, grey0.rows - 1);
    const int left = std::max(p.x - kPatchRadius, 0);
    const int right = std::min(p.x + kPatchRadius, grey0.cols - 1);
    for (int y = top; y <= bottom; ++y) {
      const float* greyRow = grey0.ptr<float>(y);
      const float* alphaRow = alpha0.ptr<float>(y);
      for (int x = left; x <= right; ++x) {
        const int ox = x - p.x;
        const int oy = y - p.y;
        offsets_.push_back(
            {ox, oy,
             static_cast<std::ptrdiff_t>(oy) * static_cast<std::ptrdiff_t>(secondStride_) + ox,
             greyRow[x], alphaRow[x]});
      }
    }
  }

  // The patch cost of the gathered window against q of the second image. Both second images are
  // continuous and have the layout given to the constructor.
  float costAgainst(const cv::Mat& grey1, const cv::Mat& alpha1, cv::Point q) const {
    float difference = 0.0f;
    float validity = 0.0f;
    const bool inside = q.x - kPatchRadius >= 0 && q.x + kPatchRadius < grey1.cols &&
                        q.y - kPatchRadius >= 0 && q.y + kPatchRadius < grey1.rows;
    if (inside) {
      const std::ptrdiff_t centre =
          static_cast<std::ptrdiff_t>(q.y) * static_cast<std::ptrdiff_t>(secondStride_) + q.x;
      const float* grey = reinterpret_cast<const float*>(grey1.data) + centre;
      const float* alpha = reinterpret_cast<const float*>(alpha1.data) + centre;
      for (const Offset& o : offsets_) {
        difference += std::fabs(o.grey - grey[o.linear]);
        validity += o.alpha * alpha[o.linear];
      }
    } else {
      const int lastX = grey1.cols - 1;
      const int lastY = grey1.rows - 1;
      for (const Offset& o : offsets_) {
        const int x = std::min(std::max(q.x + o.x, 0), lastX);
        const int y = std::min(std::max(q.y + o.y, 0), lastY);
        difference += std::fabs(o.grey - grey1.ptr<float>(y)[x]);
        validity += o.alpha * alpha1.ptr<float>(y)[x];
      }
    }
    const int dx = q.x - p_.x;
    const int dy = q.y - p_.y;
    const float distance = static_cast<float>(std::sqrt(static_cast<double>(dx * dx + dy * dy)));
    return (1.0f + kPatchDistancePenalty * distance) * difference / validity;
  }

 private:
  struct Offset {
    int x;
    int y;
    std::ptrdiff_t linear;  // offset in floats within an image of the second image's layout
    float grey;
    float alpha;
  };
  std::size_t secondStride_;
  cv::Point p_;
  std::vector<Offset> offsets_;
};

}  // namespace

float brightnessGain(const cv::Mat& grey0, const cv::Mat& alpha0, const cv::Mat& grey1,
                     const cv::Mat& alpha1) {
  requireSameFloatImages(grey0, alpha0, grey1, alpha1);
  float first = 0.0f;
  float second = 0.0f;
  for (int y = 0; y < grey0.rows; ++y) {
    const float* g0 = grey0.ptr<float>(y);
    const float* a0 = alpha0.ptr<float>(y);
    const float* g1 = grey1.ptr<float>(y);
    const float* a1 = alpha1.ptr<float>(y);
    for (int x = 0; x < grey0.cols; ++x) {
      const float joint = a0[x] * a1[x];
      first += joint * g0[x];
      second += joint * g1[x];
    }
  }
  return first / second;
}

float patchCost(const cv::Mat& grey0, const cv::Mat& alpha0, cv::Point p, const cv::Mat& grey1,
                const cv::Mat& alpha1, cv::Point q) {
  requireSameFloatImages(grey0, alpha0, grey1, alpha1);
  if (!cv::Rect(0, 0, grey0.cols, grey0.rows).contains(p)) {
    throw Failure("Flow search: the patch centre lies outside the first image.");
  }
  const cv::Mat second = continuous(grey1);
  const cv::Mat secondAlpha = continuous(alpha1);
  PatchWindow window(second);
  window.gather(grey0, alpha0, p);
  return window.costAgainst(second, secondAlpha, q);
}

void initialSearch(const cv::Mat& grey0, const cv::Mat& grey1, const cv::Mat& alpha0,
                   const cv::Mat& alpha1, cv::Mat& flow, int directionHint) {
  requireSameFloatImages(grey0, alpha0, grey1, alpha1);
  if (flow.type() != CV_32FC2 || flow.size() != grey0.size()) {
    throw Failure("Flow search: the flow must be CV_32FC2 of the images' size.");
  }
  SearchRange range;
  if (!searchRangeOf(directionHint, range)) return;

  const cv::Mat second = grey1 * brightnessGain(grey0, alpha0, grey1, alpha1);
  const cv::Mat secondAlpha = continuous(alpha1);
  PatchWindow window(second);
  for (int y = 0; y < grey0.rows; ++y) {
    const float* firstAlpha = alpha0.ptr<float>(y);
    cv::Vec2f* flowRow = flow.ptr<cv::Vec2f>(y);
    for (int x = 0; x < grey0.cols; ++x) {
      if (!(firstAlpha[x] > kSearchAlphaThreshold)) continue;
      const cv::Point p(x, y);
      window.gather(grey0, alpha0, p);
      float bestCost = window.costAgainst(second, secondAlpha, p);
      cv::Point best = p;
      for (int dy = range.minDy; dy <= range.maxDy; ++dy) {
        const int qy = y + dy;
        if (qy < 0 || qy >= second.rows) continue;
        for (int dx = range.minDx; dx <= range.maxDx; ++dx) {
          const int qx = x + dx;
          // Zero displacement is the starting best; its equal cost could never win.
          if (qx < 0 || qx >= second.cols || (dx == 0 && dy == 0)) continue;
          const float cost = window.costAgainst(second, secondAlpha, cv::Point(qx, qy));
          if (cost < bestCost) {
            bestCost = cost;
            best = cv::Point(qx, qy);
          }
        }
      }
      flowRow[x] = cv::Vec2f(static_cast<float>(best.x - x), static_cast<float>(best.y - y));
    }
  }
}

}  // namespace velmora
