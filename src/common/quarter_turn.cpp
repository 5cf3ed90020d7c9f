#include "common/quarter_turn.h"

#include <algorithm>
#include <cstring>

#include "common/status.h"

namespace velmora {
namespace {

// Side of the square tiles: 64 x 64 pixels of three bytes read and written fit in the first-level
// cache together.
constexpr int kTile = 64;

template <int kBytes>
void turnTiles(const cv::Mat& image, cv::Mat& turned) {
  const int lastColumn = image.cols - 1;
  for (int top = 0; top < image.rows; top += kTile) {
    const int bottom = std::min(image.rows, top + kTile);
    for (int left = 0; left < image.cols; left += kTile) {
      const int right = std::min(image.cols, left + kTile);
      for (int column = left; column < right; ++column) {
        uchar* out = turned.ptr<uchar>(lastColumn - column) + top * kBytes;
        const uchar* in = image.data + column * kBytes;
        for (int row = top; row < bottom; ++row, out += kBytes) {
          std::memcpy(out, in + row * image.step[0], kBytes);
        }
      }
    }
  }
}

}  // namespace

void turnQuarterCounterClockwise(const cv::Mat& image, cv::Mat& turned) {
  if (image.dims != 2 || image.elemSize() > 16) {
    throw Failure("Quarter turn: a two-dimensional image of up to 16 bytes per pixel is needed.");
  }
  if (turned.data != nullptr && turned.data == image.data) {
    throw Failure("Quarter turn: the turned image must not be the image itself.");
  }
  turned.create(image.cols, image.rows, image.type());
  switch (image.elemSize()) {
    case 1:
      turnTiles<1>(image, turned);
      return;
    case 2:
      turnTiles<2>(image, turned);
      return;
    case 3:
      turnTiles<3>(image, turned);
      return;
    case 4:
      turnTiles<4>(image, turned);
      return;
    case 6:
      turnTiles<6>(image, turned);
      return;
    case 8:
      turnTiles<8>(image, turned);
      return;
    case 12:
      turnTiles<12>(image, turned);
      return;
    case 16:
      turnTiles<16>(image, turned);
      return;
    default:
      throw Failure("Quarter turn: an image of " + std::to_string(image.elemSize()) +
                    " bytes per pixel is not supported.");
  }
}

}  // namespace velmora
