// Simulating a camera to files: names, sizes, the configuration text and failure behaviour.
#include "sim/rig_simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <opencv2/imgcodecs.hpp>

#include "rig/camera_config.h"
#include "support/simulated_bracket.h"

namespace velmora::sim {
namespace {

using velmora::testing::TempDir;
namespace fs = std::filesystem;

SimulationRequest smallRequest(RigCamera camera, const std::string& dir) {
  SimulationRequest request = velmora::testing::simulationRequest(camera, {160, 120}, 128, 64, dir);
  request.shotExtension = ".png";
  return request;
}

// The configuration reads back, through the library's reader, as the calibration used.
void expectConfiguration(const std::string& path, const CameraCalibration& expected) {
  CameraCalibration read;
  ASSERT_TRUE(readCameraConfiguration(path, read));
  EXPECT_EQ(cv::norm(read.cameraMatrix, expected.cameraMatrix, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::Vec2f(read.rotX, read.rotZ), cv::Vec2f(expected.rotX, expected.rotZ));
}

TEST(RigSimulation, WritesAShotPerPositionAndBracketTheConfigurationAndTheTruth) {
  TempDir dir;
  const cv::Mat scene = makeBuiltinScene(256, 128);
  SimulationRequest request = smallRequest(RigCamera::Up, dir.path().string());
  request.exposures = {0.5f, 1.0f};
  SimulatedFiles files = simulateCamera(scene, request);
  for (int position = 0; position < 6; ++position) {
    ASSERT_EQ(files.shots[position].size(), 2u);
    for (size_t bracket = 0; bracket < 2; ++bracket) {
      const std::string name = "Up_" + std::to_string(position) + "_" + std::to_string(bracket);
      EXPECT_EQ(files.shots[position][bracket], dir.file(name + ".png"));
      // Stored as the host passes the size.
      EXPECT_EQ(cv::imread(files.shots[position][bracket]).size(), cv::Size(160, 120)) << name;
    }
  }
  EXPECT_EQ(shotsOfBracket(files, 1)[4], dir.file("Up_4_1.png"));
  EXPECT_LT(cv::mean(cv::imread(files.shots[2][0]))[0], cv::mean(cv::imread(files.shots[2][1]))[0]);
  EXPECT_EQ(cv::imread(files.truthPath).size(), cv::Size(128, 64));
  const cv::Mat seen = cv::imread(files.seenPath, cv::IMREAD_GRAYSCALE);
  EXPECT_EQ(seen.size(), cv::Size(128, 64));
  EXPECT_GT(cv::countNonZero(seen == 255), 128 * 64 / 3);
  expectConfiguration(files.configPath, defaultCalibration(RigCamera::Up, ShotSize{160, 120}));

  request = smallRequest(RigCamera::Down, dir.path().string());
  request.writeGroundTruth = false;
  request.calibration = makeCalibration(90.0, 81.0, 58.0, 0.1f, 0.0f);
  files = simulateCamera(scene, request);
  for (int position = 0; position < 6; ++position) {
    const std::string name = dir.file("Down_" + std::to_string(position) + ".png");
    EXPECT_EQ(files.shots[position], std::vector<std::string>{name});
    EXPECT_EQ(cv::imread(name).size(), cv::Size(160, 120)) << name;
  }
  EXPECT_TRUE(files.truthPath.empty());
  EXPECT_FALSE(fs::exists(dir.file("Down_truth.png")));
  expectConfiguration(dir.file("Down.txt"), *request.calibration);
}

TEST(RigSimulation, InvalidRequestsAndFailedWritesLeaveNothingBehind) {
  TempDir dir;
  const cv::Mat scene = makeBuiltinScene(256, 128);
  const std::function<void(SimulationRequest&)> spoilers[] = {
      [](SimulationRequest& r) { r.shotExtension = ".gif"; },
      [](SimulationRequest& r) { r.exposures.push_back(0.0f); },
      [](SimulationRequest& r) { r.exposures.clear(); },
      [](SimulationRequest& r) { r.shotSize.width = 0; },
      [](SimulationRequest& r) { r.outputDir += "/blocker/sub"; },  // a file stands in the way
  };
  velmora::testing::writeTextFile(dir.file("blocker"), "x");
  for (const auto& spoil : spoilers) {
    SimulationRequest request = smallRequest(RigCamera::Down, dir.path().string());
    spoil(request);
    EXPECT_THROW(simulateCamera(scene, request), std::runtime_error);
  }
  const SimulationRequest request = smallRequest(RigCamera::Down, dir.path().string());
  EXPECT_THROW(simulateCamera(cv::Mat(), request), std::runtime_error);
  // The last shot's name is taken by a folder, so writing it fails after five shots and the
  // configuration were written: they are taken back.
  fs::create_directory(dir.file("Down_5.png"));
  EXPECT_THROW(simulateCamera(scene, request), std::runtime_error);
  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(dir.path()))
    left.push_back(entry.path().filename().string());
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"Down_5.png", "blocker"}));
}

}  // namespace
}  // namespace velmora::sim
