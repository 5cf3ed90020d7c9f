// The pieces of the video stitch that can be checked without running external programs: the
// two command lines and their separators, the output name split, the frame placement and the
// composition.
#include <gtest/gtest.h>

#include "api/status.h"
#include "tools/frame_grab.h"
#include "tools/path_separators.h"
#include "tools/video_composition.h"
#include "tools/video_frame_placement.h"
#include "tools/video_stitcher_command.h"

namespace velmora {
namespace {

TEST(VideoCommands, WindowsFormReplacesEverySlashAndPosixKeepsThem) {
  EXPECT_EQ(kNativeSeparator, '/');
  const std::pair<const char*, const char*> windows[] = {
      {"D:/v/a.mp4", "D:\\v\\a.mp4"},
      {"//server/share//x", "\\\\server\\share\\\\x"},
      {"already\\back\\slashed", "already\\back\\slashed"},
      {"no separator at all", "no separator at all"},
      {"", ""}};
  for (const auto& [path, native] : windows) {
    EXPECT_EQ(toNativeSeparators(path, '\\'), native);
    EXPECT_EQ(toNativeSeparators(path), path);
  }
  EXPECT_EQ(frameGrabCommand("D:/v/a.mp4", '\\'),
            "ffmpeg  -i D:\\v\\a.mp4 -ss 1 -f image2  -vframes 1 D:\\v\\a.mp4.jpg -y");
  EXPECT_EQ(frameGrabCommand("/data/v/a.mp4"),
            "ffmpeg  -i /data/v/a.mp4 -ss 1 -f image2  -vframes 1 /data/v/a.mp4.jpg -y");
  EXPECT_EQ(grabbedFramePath("D:/v/a.mp4"), "D:/v/a.mp4.jpg");
  const StitcherOutput output = splitOutputPath("D:/out/scene.mp4");
  EXPECT_EQ(
      videoStitcherCommand("D:/v/a.mp4", output, '\\'),
      "zemu-ffmpeg-velmora -s D:\\v\\a.mp4 -r w=3630:h=2670:x=184:y=176  -n scene -o D:\\out");
  EXPECT_EQ(videoStitcherCommand("/v/a.mp4", output),
            "zemu-ffmpeg-velmora -s /v/a.mp4 -r w=3630:h=2670:x=184:y=176  -n scene -o D:/out");
}

TEST(VideoCommands, OutputStemIsTheLastComponentUpToItsLastDot) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"D:/out/scene.mp4", "D:/out", "scene"},
      {"/a/b.c/scene.final.mp4", "/a/b.c", "scene.final"},
      {"scene.mp4", ".", "scene"},
      {"scene", ".", "scene"},
      {"out.d/scene", "out.d", "scene"},
      {"out/.hidden", "out", ".hidden"},
      {"/scene.mp4", "/", "scene"},
      {"", ".", ""}};
  for (const auto& [path, directory, stem] : cases) {
    const StitcherOutput output = splitOutputPath(path);
    EXPECT_EQ(output.directory + "|" + output.stem, directory + std::string("|") + stem) << path;
  }
}

TEST(VideoFramePlacement, SceneRegionLandsShiftedOnABlackCanvas) {
  cv::Mat frame(2846, 3814, CV_8UC3, cv::Scalar(1, 2, 3));
  frame.at<cv::Vec3b>(176, 184) = cv::Vec3b(10, 20, 30);
  frame.at<cv::Vec3b>(2845, 3813) = cv::Vec3b(40, 50, 60);
  frame.at<cv::Vec3b>(175, 183) = cv::Vec3b(99, 99, 99);  // outside the scene region
  cv::Mat expected = cv::Mat::zeros(3648, 5472, CV_8UC3);
  frame(cv::Rect(184, 176, 3630, 2670)).copyTo(expected(cv::Rect(920, 500, 3630, 2670)));
  const cv::Mat canvas = placeFrameOnCanvas(frame);
  ASSERT_EQ(canvas.size(), expected.size());
  EXPECT_EQ(cv::norm(canvas, expected, cv::NORM_INF), 0.0);
  EXPECT_EQ(canvas.at<cv::Vec3b>(3169, 4549), cv::Vec3b(40, 50, 60));
  // A frame smaller than the scene region, or not 8-bit colour, is refused.
  EXPECT_THROW(placeFrameOnCanvas(cv::Mat(2846, 3813, CV_8UC3)), Failure);
  EXPECT_THROW(placeFrameOnCanvas(cv::Mat(2845, 3814, CV_8UC3)), Failure);
  EXPECT_THROW(placeFrameOnCanvas(cv::Mat(2846, 3814, CV_8UC1)), Failure);
}

TEST(VideoComposition, ProjectedPixelsReplaceThePanoramaInsideTheFieldOnly) {
  // The field in degrees, truncated in single precision.
  const cv::Rect field(219, 73, 71, 106);
  EXPECT_EQ(compositionRectangle(3600, 1800), cv::Rect(1540, 520, 500, 750));
  EXPECT_EQ(compositionRectangle(0, 0), cv::Rect(0, 0, 0, 0));
  EXPECT_EQ(compositionRectangle(512, 256), field);
  const cv::Mat panorama(256, 512, CV_8UC3, cv::Scalar(5, 5, 5));
  const cv::Mat projected(256, 512, CV_8UC3, cv::Scalar(200, 100, 50));
  const cv::Mat composed = composeProjectedFrame(panorama, projected);
  cv::Mat expected = panorama.clone();
  projected(field).copyTo(expected(field));
  EXPECT_EQ(cv::norm(composed, expected, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::countNonZero(panorama.reshape(1) != 5), 0);  // the input is kept

  EXPECT_THROW(composeProjectedFrame(panorama, cv::Mat(255, 512, CV_8UC3)), Failure);
  EXPECT_THROW(composeProjectedFrame(panorama, cv::Mat(256, 511, CV_8UC3)), Failure);
  EXPECT_TRUE(composeProjectedFrame(cv::Mat(), cv::Mat()).empty());
}

}  // namespace
}  // namespace velmora
