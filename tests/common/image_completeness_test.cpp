// Whether the bytes of a shot hold a whole image, whatever a camera appended after it.
#include "common/image_completeness.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/test_support.h"

namespace velmora {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes operator+(Bytes head, const Bytes& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}
Bytes firstBytes(const Bytes& bytes, size_t count) {
  return Bytes(bytes.begin(), bytes.begin() + count);
}
Bytes encoded(const cv::Mat& image, const char* extension, const std::vector<int>& params = {}) {
  Bytes bytes;
  cv::imencode(extension, image, bytes, params);
  return bytes;
}

const std::string kVideoText = testing::videoLikeData();
const Bytes kVideo(kVideoText.begin(), kVideoText.end());
const Bytes kZeros(4096, 0);

// The JPEG with an EXIF segment in front that holds a thumbnail, with its own start and end
// markers; also where that segment ends.
std::pair<Bytes, size_t> withThumbnail(const Bytes& jpeg, const cv::Mat& image) {
  cv::Mat small;
  cv::resize(image, small, cv::Size(32, 24));
  const Bytes exif =
      Bytes{'E', 'x', 'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0} + encoded(small, ".jpg");
  const size_t length = exif.size() + 2;
  const Bytes head = Bytes{0xFF, 0xD8, 0xFF, 0xE1, uchar(length >> 8), uchar(length)} + exif;
  return {head + Bytes(jpeg.begin() + 2, jpeg.end()), head.size()};
}

TEST(ImageCompleteness, WholeWhateverFollowsTheImageAndCutNeverEvenWithAWholeThumbnail) {
  cv::Mat image(96, 128, CV_8UC3);
  cv::randu(image, 0, 256);
  const Bytes jpeg = encoded(image, ".jpg"), png = encoded(image, ".png");
  const auto [thumbnailed, thumbnailEnd] = withThumbnail(jpeg, image);
  const Bytes progressive = encoded(image, ".jpg", {cv::IMWRITE_JPEG_PROGRESSIVE, 1});
  const Bytes restarts = encoded(image, ".jpg", {cv::IMWRITE_JPEG_RST_INTERVAL, 2});
  const std::tuple<const char*, Bytes, bool> cases[] = {
      {"JPEG with a thumbnail and a video after it", thumbnailed + kVideo, true},
      {"JPEG with zero padding", jpeg + kZeros, true},
      {"progressive JPEG with a video after it", progressive + kVideo, true},
      {"JPEG with restart markers", restarts, true},
      {"JPEG with stray bytes after a segment",
       firstBytes(jpeg, 20) + Bytes{1, 2, 3} + Bytes(jpeg.begin() + 20, jpeg.end()), true},
      {"PNG with a video after it", png + kVideo, true},
      {"JPEG cut in its scan", firstBytes(thumbnailed, (thumbnailEnd + thumbnailed.size()) / 2),
       false},
      {"JPEG cut just after the thumbnail", firstBytes(thumbnailed, thumbnailEnd), false},
      {"JPEG cut inside the thumbnail", firstBytes(thumbnailed, thumbnailEnd - 40), false},
      {"JPEG cut before its end marker, padding after", firstBytes(jpeg, jpeg.size() - 2) + kZeros,
       false},
      {"progressive JPEG cut between scans", firstBytes(progressive, progressive.size() / 2),
       false},
      {"PNG cut before IEND", firstBytes(png, png.size() - 12), false},
      {"PNG cut in a chunk", firstBytes(png, png.size() / 2), false}};
  for (const auto& [what, bytes, whole] : cases) {
    EXPECT_EQ(imageDataIsComplete(bytes), whole) << what;
    // What counts as whole, the decoder reads whole.
    EXPECT_TRUE(!whole || cv::imdecode(bytes, cv::IMREAD_COLOR).size() == image.size()) << what;
  }
}

}  // namespace
}  // namespace velmora
