// The HDR stitch through the public interface: on a simulated bracket, and its video variant on
// large shots with a real clip made by ffmpeg.
#include <gtest/gtest.h>

#include "api/stitch_handle.h"
#include "support/scoped_process_state.h"
#include "support/simulated_bracket.h"

namespace velmora::testing {
namespace {

class BracketedStitch : public SimulatedBracket {
 protected:
  void SetUp() override {
    CapturedConsole quiet;
    init(files_.configPath, work_.path().string());
    ASSERT_EQ(code(), 0u);
  }
};

TEST_F(BracketedStitch, WithoutVideoLeavesTheIntermediateForTheColourStep) {
  const std::string output = file("pano.png");
  {
    CapturedConsole console;
    hdr(output, slots_, {1.1f, 1.15f, 1.2f});  // red, green, blue: limited, then printed
    EXPECT_EQ(code(), 0u) << console.err();
    Lines lines = console.outLines();
    ASSERT_EQ(lines.size(), 6u);
    for (int timed : {2, 3}) lines[timed] = lines[timed].substr(0, lines[timed].find(": ") + 2);
    EXPECT_EQ(Lines(lines.begin(), lines.end() - 1),
              (Lines{"Optical Flow Stitch start.", "rgain: 0.956522 ggain: 1 bgain: 1.04348",
                     " HDR spend time : ", "Optical flow stitch spend time : ",
                     "Optical flow stitch finished."}));
  }
  EXPECT_FALSE(exists("pano.png"));
  EXPECT_EQ(cv::imread(output + ".jpg").size(), cv::Size(kGridWidth, kGridHeight));
  // (The colour step on the pending entry is the colour step's test.)
  EXPECT_EQ(static_cast<StitchHandle*>(handle_)->pendingIsp.at(output), output + ".jpg");
}

TEST_F(BracketedStitch, TwoExposureBracketsFailInsideTheFusionWithoutKillingTheHost) {
  CapturedConsole console;
  hdr(file("pano.jpg"), slots_, {1, 1, 1}, 2);
  EXPECT_EQ(code(), kFailed);
  EXPECT_EQ(console.errLines(), Lines{"unknow error."});
  EXPECT_FALSE(exists("pano.jpg.jpg"));
}

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
