// The velmora command-line tool, run as a user runs it: exit codes, messages and files.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "apps/tool_run.h"
#include "support/test_support.h"

namespace {

using velmora::testing::runTool;
using velmora::testing::TempDir;
using velmora::testing::ToolRun;
namespace fs = std::filesystem;

TEST(VelmoraTool, UsageListsTheSubcommands) {
  TempDir dir;
  const ToolRun help = runTool(dir, "--help");
  EXPECT_EQ(help.exitCode, 0);
  for (const char* name : {"simulate", "scene", "init", "hdr", "isp", "repair", "video"}) {
    EXPECT_NE(help.out.find(name), std::string::npos) << name;
  }
  const ToolRun none = runTool(dir, "");
  EXPECT_NE(none.exitCode, 0);
  EXPECT_NE(none.err.find("subcommand"), std::string::npos) << none.err;
}

TEST(VelmoraTool, BadArgumentsAreNamed) {
  TempDir dir;
  const ToolRun noOut = runTool(dir, "simulate");
  EXPECT_NE(noOut.exitCode, 0);
  EXPECT_NE(noOut.err.find("--out is required"), std::string::npos) << noOut.err;
  const ToolRun badSize = runTool(dir, "simulate -o " + dir.file("s") + " --grid 12x");
  EXPECT_NE(badSize.exitCode, 0);
  EXPECT_NE(badSize.err.find("--grid"), std::string::npos) << badSize.err;
  const ToolRun badList = runTool(dir, "simulate -o " + dir.file("s") + " --exposures 1,0");
  EXPECT_EQ(badList.exitCode, 1);
  EXPECT_NE(badList.err.find("positive"), std::string::npos) << badList.err;
  const ToolRun badCamera = runTool(dir, "simulate -o " + dir.file("s") + " --camera left");
  EXPECT_NE(badCamera.exitCode, 0);
  EXPECT_FALSE(fs::exists(dir.file("s")));
}

TEST(VelmoraTool, SimulateWritesBothCamerasAndSaysWhere) {
  TempDir dir;
  const std::string out = dir.file("sim");
  const ToolRun run = runTool(dir, "simulate -o " + out +
                                       " --shot-size 200x150 --grid 128x64 --format png"
                                       " --nodal-offset 0.05 --scene-radius 3 --noise 2");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  for (const std::string name : {"Up", "Down"}) {
    EXPECT_NE(run.out.find(out + "/" + name + ".txt"), std::string::npos) << run.out;
    for (int position = 0; position < 6; ++position) {
      const cv::Mat shot = cv::imread(out + "/" + name + "_" + std::to_string(position) + ".png");
      EXPECT_EQ(shot.size(), cv::Size(200, 150));
    }
    EXPECT_EQ(cv::imread(out + "/" + name + "_truth.png").size(), cv::Size(128, 64));
  }
}

TEST(VelmoraTool, SimulateTakesASceneAndAConfiguration) {
  TempDir dir;
  const ToolRun scene = runTool(dir, "scene " + dir.file("scene.png") + " --size 256x128");
  ASSERT_EQ(scene.exitCode, 0) << scene.err;
  EXPECT_EQ(cv::imread(dir.file("scene.png")).size(), cv::Size(256, 128));

  velmora::testing::writeTextFile(dir.file("Down.txt"),
                                  velmora::testing::cameraConfigText(100.0, 80.0, 60.0, 0.2f));
  const std::string out = dir.file("sim");
  const ToolRun run =
      runTool(dir, "simulate -o " + out + " --scene " + dir.file("scene.png") + " --config " +
                       dir.file("Down.txt") +
                       " --camera down --shot-size 160x120 --grid 128x64 --exposures 0.5,1");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_FALSE(fs::exists(out + "/Up.txt"));
  EXPECT_TRUE(fs::exists(out + "/Down_5_1.jpg"));
  EXPECT_NE(velmora::testing::readFile(out + "/Down.txt").find("focal 100"), std::string::npos);

  const ToolRun both = runTool(dir, "simulate -o " + out + " --config " + dir.file("Down.txt"));
  EXPECT_EQ(both.exitCode, 1);
  EXPECT_NE(both.err.find("--camera"), std::string::npos) << both.err;
  const ToolRun missing = runTool(dir, "simulate -o " + out + " --scene " + dir.file("none.png"));
  EXPECT_NE(missing.exitCode, 0);
}

TEST(VelmoraTool, InitBuildsTheTableThroughTheLibrary) {
  TempDir dir;
  const ToolRun simulated = runTool(dir, "simulate -o " + dir.path().string() +
                                             " --camera up --shot-size 160x120 --grid 128x64"
                                             " --no-truth");
  ASSERT_EQ(simulated.exitCode, 0) << simulated.err;
  const ToolRun init = runTool(dir, "init -c " + dir.file("Up.txt") + " -t " + dir.path().string() +
                                        " --shot-size 160x120 --grid 128x64");
  ASSERT_EQ(init.exitCode, 0) << init.err;
  EXPECT_NE(init.out.find("Init UpCam done."), std::string::npos) << init.out;
  EXPECT_EQ(fs::file_size(dir.file("table_Up.bin")), 8u * 128 * 64);

  // A configuration whose name selects no camera: the library's message and a failed exit.
  velmora::testing::writeTextFile(dir.file("up.txt"),
                                  velmora::testing::readFile(dir.file("Up.txt")));
  const ToolRun wrong =
      runTool(dir, "init -c " + dir.file("up.txt") + " -t " + dir.path().string());
  EXPECT_EQ(wrong.exitCode, 1);
  EXPECT_NE(wrong.err.find("Configure path:"), std::string::npos) << wrong.err;
}

}  // namespace
