// Files as cameras and hosts hand them over: shots with data after the image (padding, trailers,
// an appended video), and a table folder that the video step shares with the stitch.
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "common/image_completeness.h"
#include "support/scoped_process_state.h"
#include "support/simulated_bracket.h"
#include "tools/process_runner.h"

namespace velmora::testing {
namespace {

namespace fs = std::filesystem;
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

// 16 kB as a phone appends its video: an MP4 box header, then noise that holds end and start
// markers of its own.
Bytes videoLikeData() {
  cv::Mat noise(1, 16384, CV_8U);
  cv::RNG(14).fill(noise, cv::RNG::UNIFORM, 0, 256);
  Bytes data(noise.data, noise.data + noise.total());
  const Bytes box{0, 0, 0, 0x18, 'f', 't', 'y', 'p', 'm', 'p', '4', '2'};
  std::copy(box.begin(), box.end(), data.begin());
  for (size_t at : {100, 2000, 9000}) data[at] = 0xFF, data[at + 1] = 0xD9, data[at + 3] = 0xD8;
  return data;
}
const Bytes kVideo = videoLikeData();
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

class CameraFiles : public SimulatedBracket {
 protected:
  void SetUp() override {
    CapturedConsole quiet;
    init(files_.configPath, work_.path().string());
    stitch(singles_, file("plain.jpg"));
    ASSERT_EQ(code(), 0u) << quiet.err();
  }
};

TEST_F(CameraFiles, ShotsWithDataAfterTheImageStitchLikePlainOnes) {
  std::vector<std::string> shots;
  for (size_t i = 0; i < singles_.size(); ++i) {
    const std::string plain = readFile(singles_[i]);
    const Bytes jpeg(plain.begin(), plain.end());
    const Bytes trailed = i == 5 ? encoded(cv::imread(singles_[i]), ".png") + kVideo
                                 : jpeg + (i % 2 ? kZeros : kVideo);
    shots.push_back(file("shot" + std::to_string(i)));
    writeTextFile(shots.back(), std::string(trailed.begin(), trailed.end()));
  }
  CapturedConsole console;
  stitch(shots, file("trailed.jpg"));
  EXPECT_EQ(code(), 0u) << console.err();
  EXPECT_TRUE(readFile(file("trailed.jpg")) == readFile(file("plain.jpg")));
}

TEST_F(CameraFiles, TheVideoStepKeepsTheStitchTableOfItsFolder) {
  const std::string video = file("rig.mp4");
  if (runCommand("ffmpeg -hide_banner -loglevel error -f lavfi -i testsrc=size=3840x2880:rate=2 "
                 "-t 2 -c:v mpeg4 -q:v 10 -y " +
                 video) != 0) {
    GTEST_SKIP() << "ffmpeg is not installed or could not make the test video";
  }
  fs::create_directory(file("bin"));
  writeScript(file("bin/zemu-ffmpeg-velmora"), "exit 0\n");
  ScopedEnvironmentVariable path("PATH", file("bin") + ":" + std::getenv("PATH"));
  const std::string table = readFile(file("table_Up.bin"));

  // The panorama as the colour step frames it: the grid and a band above and below, so a taller
  // grid than the table's.
  cv::Mat framed;
  const int band = static_cast<int>(kGridHeight * 0.12);
  cv::copyMakeBorder(cv::imread(file("plain.jpg")), framed, band, band, 0, 0, cv::BORDER_CONSTANT);
  ASSERT_TRUE(cv::imwrite(file("framed.jpg"), framed));
  CapturedConsole console;
  void* videoHandle = ZEMU_CreateVideoStitchHandle();
  ZEMU_InitVideoStitchHandle(videoHandle, files_.configPath.c_str(), work_.path().c_str(), 5472,
                             3648, kGridWidth, kGridHeight);
  float outA = 0.0f, outB = 0.0f;
  ZEMU_ExecuteVideoStitchHandle(videoHandle, file("framed.jpg").c_str(), video.c_str(),
                                file("scene.mp4").c_str(), nullptr, nullptr, &outA, &outB);
  EXPECT_EQ(ZEMU_GetVideoStitchCode(videoHandle), 0u) << console.err();
  ZEMU_DestroyVideoStitchHandle(videoHandle);
  EXPECT_EQ(outB, 3.0f);
  EXPECT_TRUE(readFile(file("table_Up.bin")) == table);

  stitch(singles_, file("after.jpg"));
  EXPECT_EQ(code(), 0u);
  EXPECT_TRUE(readFile(file("after.jpg")) == readFile(file("plain.jpg")));
}

}  // namespace
}  // namespace velmora::testing
