// The HDR stitch through the public interface, on a simulated bracket.
#include <gtest/gtest.h>

#include "api/stitch_handle.h"
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

}  // namespace
}  // namespace velmora::testing
