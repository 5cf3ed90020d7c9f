// The velmora command-line tool, run in a shell as a user runs it: exit codes, messages, files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "apps/tool_run.h"
#include "support/scoped_process_state.h"
#include "support/test_support.h"

namespace velmora::testing {
namespace {

namespace fs = std::filesystem;

TEST(VelmoraTool, UsageAndBadCommandLinesAreNamedAndWriteNothing) {
  TempDir dir;
  expectRun(runTool(dir, "--help"), 0,
            {"simulate", "scene", "init", "hdr", "isp", "repair", "video"});
  const std::string out = " -o " + dir.file("s");
  writeTextFile(dir.file("Down.txt"), cameraConfigText(100.0, 80.0, 60.0));
  const struct {
    std::string arguments;
    std::string named;
  } cases[] = {{"", "subcommand"},
               {"simulate", "--out is required"},
               {"simulate" + out + " --grid 12x", "--grid"},
               {"simulate" + out + " --exposures 1,0", "positive"},
               {"simulate" + out + " --camera left", "--camera"},
               {"simulate" + out + " --config " + dir.file("Down.txt"), "--camera"},
               {"simulate" + out + " --scene " + dir.file("none.png"), "none.png"},
               {"simulate" + out + " --camera up --shot-size 342x228 --video", "4736x3324"},
               {"repair x" + out + " --rect 1,2,3", "--rect"},
               {"repair x" + out + " --rect 5,5,0,4", "--rect"},
               {"repair x" + out + " --rect a,b,c,d", "--rect"},
               {"repair x" + out + " --rect 1,2,3,4,5", "--rect"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const ToolRun run = runTool(dir, c.arguments);
    EXPECT_NE(run.exitCode, 0);
    EXPECT_TRUE(run.said(c.named)) << run.err;
  }
  EXPECT_FALSE(fs::exists(dir.file("s")));
}

TEST(VelmoraTool, SimulateWritesBothCamerasOrTheOneOfAGivenSceneAndConfiguration) {
  TempDir dir;
  const std::string out = dir.file("sim");
  expectRun(runTool(dir, "simulate -o " + out +
                             " --shot-size 200x150 --grid 128x64 --format png"
                             " --nodal-offset 0.05 --scene-radius 3 --noise 2"),
            0, {out + "/Up.txt", out + "/Down.txt"});  // (the files are the simulator's test)
  expectRun(runTool(dir, "scene " + dir.file("scene.png") + " --size 256x128"), 0, {});
  EXPECT_EQ(cv::imread(dir.file("scene.png")).size(), cv::Size(256, 128));
  writeTextFile(dir.file("Down.txt"), cameraConfigText(100.0, 80.0, 60.0, 0.2f));
  const std::string given = dir.file("given");
  expectRun(runTool(dir, "simulate -o " + given + " --scene " + dir.file("scene.png") +
                             " --config " + dir.file("Down.txt") +
                             " --camera down --shot-size 160x120 --grid 128x64 --exposures 0.5,1"),
            0, {});
  EXPECT_FALSE(fs::exists(given + "/Up.txt"));
  EXPECT_TRUE(fs::exists(given + "/Down_5_1.jpg"));
  EXPECT_NE(readFile(given + "/Down.txt").find("focal 100"), std::string::npos);

  // init says what the library said.
  const std::string init = "init -t " + given + " --shot-size 160x120 --grid 128x64 -c ";
  expectRun(runTool(dir, init + given + "/Down.txt"), 0, {"Init DownCam done."});
  fs::rename(given + "/Down.txt", given + "/down.txt");
  expectRun(runTool(dir, init + given + "/down.txt"), 1, {"Configure path:"});
}

// The hdr, isp and repair commands on one simulated bracket, in a working directory with a
// stand-in colour script that hands its input back as its result.
class BracketCommands : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    shots_ = std::make_unique<TempDir>();
    const ToolRun simulated =
        runTool(*shots_,
                "simulate -o " + folder() + " --camera up --exposures 2,1,0.5 --no-truth" + kSizes);
    ASSERT_EQ(simulated.exitCode, 0) << simulated.err;
  }
  static void TearDownTestSuite() { shots_.reset(); }
  void SetUp() override { writeStandInColourStep(work_.path()); }

  // Runs the tool in the working directory; `sizes` and the table folder follow the arguments.
  ToolRun inWork(const std::string& arguments, const std::string& sizes = kSizes) const {
    return runTool(output_, arguments + sizes + " -t " + work_.path().string(),
                   "cd " + work_.path().string() + " && ");
  }
  bool inWorkExists(const std::string& name) const { return fs::exists(work_.file(name)); }
  static std::string folder() { return shots_->path().string(); }
  static std::string shot(int position, int exposure) {
    return shots_->file("Up_" + std::to_string(position) + "_" + std::to_string(exposure) + ".jpg");
  }
  // The shots one by one (`count` of them, position by position) and the configuration.
  static std::string shotList(int count, int perPosition) {
    std::string list;
    for (int k = 0; k < count; ++k) list += " " + shot(k / perPosition % 6, k % perPosition);
    return list + " -c " + folder() + "/Up.txt";
  }

  static constexpr char kSizes[] = " --shot-size 342x228 --grid 576x288";
  static inline std::unique_ptr<TempDir> shots_;
  TempDir work_;
  TempDir output_;
};

TEST_F(BracketCommands, HdrLeavesThePanoramaPendingAndOnlyTheSameProcessFinishesIt) {
  expectRun(inWork("hdr " + folder() + " -o pano.png"), 0,
            {"velmora hdr: HDR stitch status 0 (completed)", "--isp"});
  EXPECT_TRUE(inWorkExists("pano.png.jpg") && !inWorkExists("pano.png"));

  // A process of its own has a new handle: the library finds nothing pending.
  expectRun(runTool(output_, "isp pano.png", "cd " + work_.path().string() + " && "), 1,
            {"pano.png not found.", "nothing was pending"});
  EXPECT_FALSE(inWorkExists("isp.log"));

  expectRun(inWork("hdr" + shotList(18, 3) + " -o pano.png --isp --export360"), 0,
            {"velmora hdr: colour step status 0 (completed)", "pano_360.jpg"});
  EXPECT_TRUE(inWorkExists("pano.png") && !inWorkExists("pano.png.jpg"));
  EXPECT_EQ(cv::imread(work_.file("pano_360.jpg")).size(), cv::Size(576, 288));
}

TEST_F(BracketCommands, HdrChecksWhatItNeedsFirst) {
  // (A library failure's line and status in words: the init and video commands' tests.)
  expectRun(inWork("hdr" + shotList(13, 3) + " -o pano.png"), 1, {"12 or 18"});
  expectRun(inWork("hdr " + folder() + " -o pano.png --export360"), 1, {"--export360 needs"});

  // Without the colour script in the working directory --isp stops before any stitching.
  fs::remove(work_.file("isp.bat"));
  fs::remove(work_.file("table_Up.bin"));
  expectRun(inWork("hdr " + folder() + " -o pano.png --isp"), 1, {"isp.bat", "share/isp"});
  EXPECT_FALSE(inWorkExists("table_Up.bin"));
}

TEST_F(BracketCommands, RepairTakesTheRectanglesInOrderAndChecksTheBracketFirst) {
  // The first rectangle lies at the panorama's edge (sector 2, never repaired); the second, in
  // sector 4, is.
  const ToolRun repaired =
      inWork("repair " + folder() + " -o fixed.png --rect 0,100,40,40 --rect 180,90,26,40");
  expectRun(repaired, 0,
            {"0th ROI over cur sphere.", "velmora repair: repair status 0 (completed)"});
  EXPECT_FALSE(repaired.said("1th ROI over cur sphere.")) << repaired.out;
  EXPECT_TRUE(inWorkExists("fixed.png"));

  fs::remove(work_.file("fixed.png"));
  fs::remove(work_.file("table_Up.bin"));
  expectRun(inWork("repair" + shotList(12, 2) + " -o fixed.png --rect 1,2,3,4"), 1,
            {"2 exposures per head position, not 3"});
  EXPECT_FALSE(inWorkExists("fixed.png") || inWorkExists("table_Up.bin"));
}

// The video command with the real ffmpeg, a 2-second clip of the rig's frame size made here and a
// stand-in external video stitcher on the PATH that records its arguments.
TEST(VelmoraTool, VideoGrabsTheFrameStartsTheStitcherOrFailsWithoutRunningIt) {
  TempDir work;
  if (!makeTestClip(work.file("rig.mp4"), "3840x2880")) GTEST_SKIP() << "ffmpeg made no video";
  fs::create_directory(work.file("bin"));
  fs::create_directory(work.file("out"));
  writeScript(work.file("bin/zemu-ffmpeg-velmora"),
              "echo \"$*\" >> " + work.file("stitcher.log") + "\n");
  writeTextFile(work.file("Up.txt"), cameraConfigText(1500.0, 1824.0, 2736.0));
  writeTextFile(work.file("broken.mp4"), "not a video\n");
  ASSERT_TRUE(cv::imwrite(work.file("panorama.jpg"), cv::Mat(256, 512, CV_8UC3, cv::Scalar(30))));
  TempDir output;
  const auto video = [&](const std::string& name, const std::string& pathFolder) {
    return runTool(output,
                   "video --video " + work.file(name) + " -o " + work.file("out/scene.mp4") +
                       " --panorama " + work.file("panorama.jpg") + " -c " + work.file("Up.txt") +
                       " -t " + work.path().string() + " --shot-size 5472x3648 --grid 512x256",
                   "PATH=" + pathFolder + ":$PATH ");
  };

  const ToolRun broken = video("broken.mp4", work.file("bin"));
  expectRun(broken, 1, {"velmora video: video stitch status -1 (failed)"});
  EXPECT_FALSE(broken.said("outA")) << broken.out;
  expectRun(video("rig.mp4", work.file("out")), 1, {"zemu-ffmpeg-velmora"});
  EXPECT_FALSE(fs::exists(work.file("stitcher.log")));

  expectRun(video("rig.mp4", work.file("bin")), 0,
            {"velmora video: video stitch status 0 (completed)", "outA = 1\noutB = 3\n"});
  EXPECT_TRUE(fs::exists(work.file("stitcher.log")));  // (its arguments are the library's test)
}

}  // namespace
}  // namespace velmora::testing
