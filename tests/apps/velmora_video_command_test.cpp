// The tool's video subcommand with Debian's real ffmpeg, a short clip of the rig's frame size made
// here and a stand-in external video stitcher on the PATH that records its arguments.
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

class VideoCommand : public ::testing::Test {
 protected:
  // A 2-second clip at 2 frames a second of a frame size the video stitch takes.
  static void SetUpTestSuite() {
    videos_ = std::make_unique<TempDir>();
    std::system(("ffmpeg -hide_banner -loglevel error -f lavfi -i testsrc=size=3840x2880:rate=2 "
                 "-t 2 -c:v mpeg4 -q:v 10 -y " +
                 videos_->file("rig.mp4"))
                    .c_str());
  }
  static void TearDownTestSuite() { videos_.reset(); }

  void SetUp() override {
    if (!fs::exists(videos_->file("rig.mp4"))) GTEST_SKIP() << "ffmpeg made no test video";
    fs::copy(videos_->file("rig.mp4"), work_.file("rig.mp4"));
    fs::create_directory(work_.file("bin"));
    fs::create_directory(work_.file("out"));
    velmora::testing::writeScript(work_.file("bin/zemu-ffmpeg-velmora"),
                                  "echo \"$*\" >> " + work_.file("stitcher.log") + "\n");
    velmora::testing::writeTextFile(work_.file("Up.txt"),
                                    velmora::testing::cameraConfigText(1500.0, 1824.0, 2736.0));
    ASSERT_TRUE(cv::imwrite(work_.file("panorama.jpg"),
                            cv::Mat(256, 512, CV_8UC3, cv::Scalar(30, 60, 90))));
  }

  // Runs "velmora video" with the stand-in stitcher first on the PATH.
  ToolRun video(const std::string& videoName, const std::string& pathFolder) const {
    return runTool(output_,
                   "video --video " + work_.file(videoName) + " -o " + work_.file("out/scene.mp4") +
                       " --panorama " + work_.file("panorama.jpg") + " -c " + work_.file("Up.txt") +
                       " -t " + work_.path().string() + " --shot-size 5472x3648 --grid 512x256",
                   "PATH=" + pathFolder + ":$PATH ");
  }

  static std::unique_ptr<TempDir> videos_;
  TempDir work_;
  TempDir output_;
};

std::unique_ptr<TempDir> VideoCommand::videos_;

TEST_F(VideoCommand, GrabsTheFrameStartsTheStitcherAndPrintsTheValues) {
  const ToolRun run = video("rig.mp4", work_.file("bin"));

  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_NE(run.out.find("velmora video: video stitch status 0 (completed)"), std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("outA = 1\noutB = 3\n"), std::string::npos) << run.out;
  EXPECT_EQ(readFile(work_.file("stitcher.log")), "-s " + work_.file("rig.mp4") +
                                                      " -r w=3630:h=2670:x=184:y=176 -n scene -o " +
                                                      work_.file("out") + "\n");
  EXPECT_FALSE(fs::exists(work_.file("rig.mp4.jpg")));
}

TEST_F(VideoCommand, AVideoWithoutAFrameOrAMissingStitcherFailsWithoutRunningIt) {
  velmora::testing::writeTextFile(work_.file("broken.mp4"), "not a video\n");
  const ToolRun broken = video("broken.mp4", work_.file("bin"));
  EXPECT_EQ(broken.exitCode, 1);
  EXPECT_NE(broken.err.find("velmora video: video stitch status -1 (failed)"), std::string::npos)
      << broken.err;
  EXPECT_EQ(broken.out.find("outA"), std::string::npos) << broken.out;

  const ToolRun noStitcher = video("rig.mp4", work_.file("out"));
  EXPECT_EQ(noStitcher.exitCode, 1);
  EXPECT_NE(noStitcher.err.find("zemu-ffmpeg-velmora"), std::string::npos) << noStitcher.err;
  EXPECT_FALSE(fs::exists(work_.file("stitcher.log")));

  // The simulator's rig video holds 4000x3000 regions of rig-sized shots only.
  const ToolRun smallShots = runTool(
      output_, "simulate -o " + work_.file("sim") + " --camera up --shot-size 342x228 --video");
  EXPECT_NE(smallShots.exitCode, 0);
  EXPECT_NE(smallShots.err.find("4736x3324"), std::string::npos) << smallShots.err;
  EXPECT_FALSE(fs::exists(work_.file("sim")));
}

}  // namespace
