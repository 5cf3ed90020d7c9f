// Files as cameras and hosts hand them over: shots with data after the image (padding, an appended
// video), and a table folder that the video step shares with the stitch.
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/scoped_process_state.h"
#include "support/simulated_bracket.h"

namespace velmora::testing {
namespace {

namespace fs = std::filesystem;

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
  // JPEGs with a video or zero padding after them, and a PNG with a video after it.
  const std::string video = videoLikeData();
  std::vector<uchar> png;
  cv::imencode(".png", cv::imread(singles_[5]), png);
  std::vector<std::string> shots;
  for (size_t i = 0; i < singles_.size(); ++i) {
    const std::string image = i == 5 ? std::string(png.begin(), png.end()) : readFile(singles_[i]);
    shots.push_back(file("shot" + std::to_string(i)));
    writeTextFile(shots.back(), image + (i % 2 && i < 5 ? std::string(4096, '\0') : video));
  }
  CapturedConsole console;
  stitch(shots, file("trailed.jpg"));
  EXPECT_EQ(code(), 0u) << console.err();
  EXPECT_TRUE(readFile(file("trailed.jpg")) == readFile(file("plain.jpg")));
}

TEST_F(CameraFiles, TheVideoStepKeepsTheStitchTableOfItsFolder) {
  const std::string video = file("rig.mp4");
  if (!makeTestClip(video, "3840x2880")) GTEST_SKIP() << "ffmpeg is not installed";
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
