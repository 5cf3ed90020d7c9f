// The HDR stitch's video variant through the public interface, with a real clip made by ffmpeg.
// The shots must hold the tone source (4000 x 3000 at column 736, row 324), so they are large;
// one image serves every slot to keep the run short.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "sim/rig_camera.h"
#include "support/test_support.h"
#include "tools/process_runner.h"
#include "tools/scoped_process_state.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;

constexpr int kShotWidth = 4736;
constexpr int kShotHeight = 3324;
constexpr int kGridWidth = 576;
constexpr int kGridHeight = 288;
constexpr int kBandRows = 34;

TEST(HdrVideoVariant, GrabsTheFrameMatchesTonesAndWritesTheComposite) {
  testing::TempDir work;
  testing::ScopedWorkingDirectory inside(work.path());
  testing::writeStandInColourStep(work.path());
  // Shot 16's name gives the video's: its first 14 characters and ".mp4".
  const std::string shot = work.file("rigvideo_00042_bracket.jpg");
  const std::string video = work.file("rigvideo_00042.mp4");
  cv::Mat patches(17, 24, CV_8UC3), enlarged;  // structure and colour everywhere, made cheaply
  cv::RNG(42).fill(patches, cv::RNG::UNIFORM, 30, 220);
  cv::resize(patches, enlarged, cv::Size(kShotWidth, kShotHeight), 0, 0, cv::INTER_CUBIC);
  ASSERT_TRUE(cv::imwrite(shot, enlarged));
  void* handle = ZEMU_CreateOptFlowStitchHandle();
  for (auto camera : {sim::RigCamera::Up, sim::RigCamera::Down}) {
    const std::string config = work.file(std::string(sim::cameraName(camera)) + ".txt");
    sim::writeCalibration(sim::defaultCalibration(camera, {kShotWidth, kShotHeight}), config);
    CapturedConsole quiet;
    ZEMU_InitOptFlowStitchHandle(handle, config.c_str(), work.path().c_str(), kShotWidth,
                                 kShotHeight, kGridWidth, kGridHeight);
  }
  ASSERT_EQ(ZEMU_GetOptFlowStitchCode(handle), 0u);
  std::vector<const char*> shots(18, shot.c_str());
  const std::string output = work.file("final.png");

  {  // No video beside the shots: the panoramas are stitched, then the frame is missing.
    CapturedConsole console;
    ZEMU_ExecuteOptFlowStitchHDRHandle(handle, shots.data(), output.c_str(), 1, 1, 1, 1, 3);
    EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle), 0xFFFFFFFFu);
    EXPECT_EQ(console.errLines(),
              std::vector<std::string>{"Read video frame: " + video + ".jpg error."});
    EXPECT_NE(console.out().find(" HDR spend time : "), std::string::npos);
    EXPECT_EQ(console.out().find("Optical flow stitch spend time : "), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(output));
  }

  ASSERT_EQ(runCommand("ffmpeg -loglevel error -y -f lavfi -i testsrc=size=4000x3000:rate=1 "
                       "-t 2 -c:v mpeg4 -q:v 8 " +
                       video),
            0);
  CapturedConsole console;
  ZEMU_ExecuteOptFlowStitchHDRHandle(handle, shots.data(), output.c_str(), 1, 1, 1, 1, 3);
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle), 0u) << console.err();
  ZEMU_DestroyOptFlowStitchHandle(handle);
  const std::string out = console.out();
  for (const char* line :
       {"Bright diff rate: ", "-----------------ISP-----------------", "ISP spend time : "}) {
    EXPECT_NE(out.find(line), std::string::npos) << line;
  }
  EXPECT_FALSE(std::filesystem::exists(video + ".jpg"));
  EXPECT_FALSE(std::filesystem::exists(output + ".jpg"));
  EXPECT_EQ(testing::readFile(work.file("isp.log")),
            "isp_minion.pp3 " + output + " " + output + ".jpg\n");
  // A JPEG whatever the name says, of the framed height.
  EXPECT_EQ(testing::readFile(output).substr(0, 2), "\xFF\xD8");
  EXPECT_EQ(cv::imread(output).size(), cv::Size(kGridWidth, kGridHeight + 2 * kBandRows));
}

}  // namespace
}  // namespace velmora
