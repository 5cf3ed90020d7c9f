// The HDR stitch's video variant through the public interface, with a real clip made by ffmpeg.
#include <gtest/gtest.h>

#include "support/scoped_process_state.h"
#include "support/simulated_bracket.h"

namespace velmora::testing {
namespace {

TEST(HdrVideoVariant, GrabsTheFrameMatchesTonesAndWritesTheComposite) {
  TempDir work;
  ScopedWorkingDirectory inside(work.path());
  writeStandInColourStep(work.path());
  LargeShotRig rig(work);
  ASSERT_EQ(ZEMU_GetOptFlowStitchCode(rig.handle), 0u);
  const std::string output = work.file("final.png");
  {  // No video beside the shots: the panoramas are stitched, then the frame is missing.
    CapturedConsole console;
    EXPECT_EQ(rig.hdrWithVideo(output), kFailed);
    EXPECT_EQ(console.errLines(), Lines{"Read video frame: " + rig.video + ".jpg error."});
    EXPECT_NE(console.out().find(" HDR spend time : "), std::string::npos);
    EXPECT_EQ(console.out().find("Optical flow stitch spend time : "), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(output));
  }
  ASSERT_TRUE(makeTestClip(rig.video, "4000x3000"));
  CapturedConsole console;
  EXPECT_EQ(rig.hdrWithVideo(output), 0u) << console.err();
  for (const char* line :
       {"Bright diff rate: ", "-----------------ISP-----------------", "ISP spend time : "}) {
    EXPECT_NE(console.out().find(line), std::string::npos) << line;
  }
  EXPECT_FALSE(std::filesystem::exists(rig.video + ".jpg"));
  EXPECT_FALSE(std::filesystem::exists(output + ".jpg"));
  EXPECT_EQ(readFile(work.file("isp.log")), "isp_minion.pp3 " + output + " " + output + ".jpg\n");
  // A JPEG whatever the name says, of the framed height (int(288 x 0.12) = 34 rows a band).
  EXPECT_EQ(readFile(output).substr(0, 2), "\xFF\xD8");
  EXPECT_EQ(cv::imread(output).size(), cv::Size(576, 288 + 2 * 34));
}

}  // namespace
}  // namespace velmora::testing
