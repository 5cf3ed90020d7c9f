// The tool's hdr, isp and repair subcommands on a bracket the tool's simulator renders, in a
// working directory with a stand-in colour script that hands its input back as its result.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "apps/tool_run.h"
#include "support/test_support.h"
#include "tools/scoped_process_state.h"

namespace {

using velmora::testing::readFile;
using velmora::testing::runTool;
using velmora::testing::TempDir;
using velmora::testing::ToolRun;
namespace fs = std::filesystem;

constexpr char kSizes[] = " --shot-size 342x228 --grid 576x288";
// The framed panorama: 288 rows and a band of int(288 x 0.12) = 34 rows above and below.
const cv::Size kFramedSize(576, 288 + 2 * 34);

class BracketCommands : public ::testing::Test {
 protected:
  // One simulated bracket of 0.5, 1 and 2 for all tests.
  static void SetUpTestSuite() {
    shots_ = std::make_unique<TempDir>();
    const ToolRun simulated =
        runTool(*shots_, "simulate -o " + shots_->path().string() +
                             " --camera up --exposures 2,1,0.5 --no-truth" + kSizes);
    ASSERT_EQ(simulated.exitCode, 0) << simulated.err;
  }
  static void TearDownTestSuite() { shots_.reset(); }

  void SetUp() override {
    fs::create_directory(work_.file("asset"));
    velmora::testing::writeTextFile(work_.file("asset/satuHigh.pp3"), "high\n");
    velmora::testing::writeTextFile(work_.file("asset/satuLow.pp3"), "low\n");
    velmora::testing::writeScript(work_.file("isp.bat"),
                                  "echo \"$*\" >> isp.log\ncp \"$3\" \"$2\"\n");
  }

  // Runs the tool in the working directory.
  ToolRun inWork(const std::string& arguments) const {
    return runTool(output_, arguments, "cd " + work_.path().string() + " && ");
  }
  // The table cache option: the working directory.
  std::string tables() const { return " -t " + work_.path().string(); }

  static std::string folder() { return shots_->path().string(); }
  static std::string shot(int position, int exposure) {
    return shots_->file("Up_" + std::to_string(position) + "_" + std::to_string(exposure) + ".jpg");
  }
  bool inWorkExists(const std::string& name) const { return fs::exists(work_.file(name)); }

  static std::unique_ptr<TempDir> shots_;
  TempDir work_;
  TempDir output_;
};

std::unique_ptr<TempDir> BracketCommands::shots_;

TEST_F(BracketCommands, HdrLeavesThePanoramaPendingAndOnlyTheSameProcessFinishesIt) {
  const ToolRun stitched = inWork("hdr " + folder() + " -o pano.png" + kSizes + tables());
  ASSERT_EQ(stitched.exitCode, 0) << stitched.err;
  EXPECT_NE(stitched.out.find("velmora hdr: HDR stitch status 0 (completed)"), std::string::npos)
      << stitched.out;
  EXPECT_NE(stitched.out.find("--isp"), std::string::npos) << stitched.out;
  EXPECT_TRUE(inWorkExists("pano.png.jpg"));
  EXPECT_FALSE(inWorkExists("pano.png"));

  // A process of its own has a new handle: the library finds nothing pending.
  const ToolRun separate = inWork("isp pano.png");
  EXPECT_EQ(separate.exitCode, 1);
  EXPECT_NE(separate.out.find("pano.png not found."), std::string::npos) << separate.out;
  EXPECT_NE(separate.err.find("nothing was pending"), std::string::npos) << separate.err;
  EXPECT_FALSE(inWorkExists("isp.log"));
  EXPECT_FALSE(inWorkExists("pano.png"));

  // The shots one by one, position by position, and the colour step on the same handle.
  std::string shots;
  for (int p = 0; p < 6; ++p) {
    for (int e = 0; e < 3; ++e) shots += " " + shot(p, e);
  }
  const ToolRun finished =
      inWork("hdr" + shots + " -c " + folder() + "/Up.txt -o pano.png --isp" + kSizes + tables());
  ASSERT_EQ(finished.exitCode, 0) << finished.err;
  EXPECT_NE(finished.out.find("velmora hdr: colour step status 0 (completed)"), std::string::npos)
      << finished.out;
  EXPECT_EQ(readFile(work_.file("isp.log")), "isp_minion.pp3 pano.png pano.png.jpg\n");
  EXPECT_FALSE(inWorkExists("pano.png.jpg"));
  EXPECT_EQ(cv::imread(work_.file("pano.png")).size(), kFramedSize);
}

TEST_F(BracketCommands, HdrReportsLibraryFailuresInWordsAndChecksWhatItNeedsFirst) {
  // Shots of another size than Init was given: the library's line, then the status in words.
  const ToolRun wrongSize =
      inWork("hdr " + folder() + " -o pano.png --shot-size 300x200 --grid 576x288" + tables());
  EXPECT_EQ(wrongSize.exitCode, 1);
  EXPECT_NE(wrongSize.err.find("Read imgPath: " + shot(0, 0) + " error."), std::string::npos)
      << wrongSize.err;
  EXPECT_NE(wrongSize.err.find("velmora hdr: HDR stitch status -1 (failed)"), std::string::npos)
      << wrongSize.err;
  EXPECT_FALSE(inWorkExists("pano.png.jpg"));

  std::string thirteen;
  for (int k = 0; k < 13; ++k) thirteen += " " + shot(k % 6, k % 3);
  const ToolRun wrongCount =
      inWork("hdr" + thirteen + " -c " + folder() + "/Up.txt -o pano.png" + kSizes + tables());
  EXPECT_EQ(wrongCount.exitCode, 1);
  EXPECT_NE(wrongCount.err.find("12 or 18"), std::string::npos) << wrongCount.err;

  // Without the colour script in the working directory --isp stops before any stitching.
  fs::remove(work_.file("isp.bat"));
  fs::remove(work_.file("table_Up.bin"));
  const ToolRun noScript = inWork("hdr " + folder() + " -o pano.png --isp" + kSizes + tables());
  EXPECT_EQ(noScript.exitCode, 1);
  EXPECT_NE(noScript.err.find("isp.bat"), std::string::npos) << noScript.err;
  EXPECT_NE(noScript.err.find("share/isp"), std::string::npos) << noScript.err;
  EXPECT_FALSE(inWorkExists("table_Up.bin"));
}

TEST_F(BracketCommands, RepairTakesTheRectanglesInOrderAndWritesTheColouredPanorama) {
  // The first rectangle lies at the panorama's edge (sector 2, never repaired); the second, in
  // sector 4, is.
  const ToolRun repaired =
      inWork("repair " + folder() + " -o fixed.png --rect 0,100,40,40 --rect 180,90,26,40" +
             kSizes + tables());
  ASSERT_EQ(repaired.exitCode, 0) << repaired.err;
  EXPECT_NE(repaired.out.find("0th ROI over cur sphere."), std::string::npos) << repaired.out;
  EXPECT_EQ(repaired.out.find("1th ROI over cur sphere."), std::string::npos) << repaired.out;
  EXPECT_NE(repaired.out.find("velmora repair: repair status 0 (completed)"), std::string::npos);
  EXPECT_EQ(readFile(work_.file("isp.log")), "isp_minion.pp3 fixed.png fixed.png.jpg\n");
  EXPECT_EQ(cv::imread(work_.file("fixed.png")).size(), kFramedSize);
}

TEST_F(BracketCommands, RepairRefusesMalformedRectanglesAndShortBrackets) {
  for (const char* rectangle : {"1,2,3", "5,5,0,4", "a,b,c,d", "1,2,3,4,5"}) {
    const ToolRun run =
        inWork("repair " + folder() + " -o fixed.png --rect " + rectangle + kSizes + tables());
    EXPECT_NE(run.exitCode, 0) << rectangle;
    EXPECT_NE(run.err.find("--rect"), std::string::npos) << run.err;
  }
  std::string twelve;
  for (int p = 0; p < 6; ++p) twelve += " " + shot(p, 0) + " " + shot(p, 1);
  const ToolRun shortBrackets =
      inWork("repair" + twelve + " -c " + folder() + "/Up.txt -o fixed.png --rect 180,90,26,40" +
             kSizes + tables());
  EXPECT_EQ(shortBrackets.exitCode, 1);
  EXPECT_NE(shortBrackets.err.find("2 exposures per head position, not 3"), std::string::npos)
      << shortBrackets.err;
  EXPECT_FALSE(inWorkExists("fixed.png"));
  EXPECT_FALSE(inWorkExists("table_Up.bin"));
}

}  // namespace
