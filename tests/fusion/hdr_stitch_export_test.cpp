// The HDR stitch through the public interface, on a simulated bracket, with a stand-in colour
// script that hands its input back as its result.
#include <gtest/gtest.h>

#include "api/stitch_handle.h"
#include "support/scoped_process_state.h"
#include "support/simulated_bracket.h"

namespace velmora::testing {
namespace {

class BracketedStitch : public SimulatedBracket {
 protected:
  void SetUp() override {
    writeStandInColourStep(work_.path());
    CapturedConsole quiet;
    init(files_.configPath, work_.path().string());
    ASSERT_EQ(code(), 0u);
  }
  ScopedWorkingDirectory inside_{work_.path()};
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
  EXPECT_EQ(static_cast<StitchHandle*>(handle_)->pendingIsp.at(output), output + ".jpg");

  CapturedConsole console;
  ZEMU_ExecuteISPHandle(handle_, output.c_str());
  EXPECT_EQ(code(), 0u) << console.err();
  EXPECT_FALSE(exists("pano.png.jpg"));
  EXPECT_EQ(cv::imread(output).size(), cv::Size(kGridWidth, kGridHeight + 2 * kBandRows));
}

TEST_F(BracketedStitch, TwoExposureBracketsFailInsideTheFusionWithoutKillingTheHost) {
  CapturedConsole console;
  hdr(file("pano.jpg"), slots_, {1, 1, 1}, 2);
  EXPECT_EQ(code(), kFailed);
  EXPECT_EQ(console.errLines(), Lines{"unknow error."});
  EXPECT_FALSE(exists("pano.jpg.jpg"));
}

}  // namespace
}  // namespace velmora::testing
