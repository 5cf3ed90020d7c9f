#include "rig/camera_config.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace velmora {
namespace {

using testing::TempDir;

CameraCalibration readText(const std::string& text, bool* opened = nullptr) {
  TempDir dir;
  testing::writeTextFile(dir.file("Up.txt"), text);
  CameraCalibration calibration;
  const bool ok = readCameraConfiguration(dir.file("Up.txt"), calibration);
  if (opened) *opened = ok;
  return calibration;
}

TEST(CameraConfiguration, NumbersCountByPositionWhateverTheLabels) {
  const auto calibration =
      readText("f 1000.5\n7 2736.25\n- 1824\nrx 0.25 e1 9 rz -0.5\ne2 1 e3 2 e4 3\n");
  ASSERT_TRUE(calibration.hasCameraMatrix());
  const cv::Mat_<double> k = calibration.cameraMatrix;
  EXPECT_EQ(k(0, 0), 1000.5);
  EXPECT_EQ(k(1, 1), 1000.5);
  EXPECT_EQ(k(0, 2), 2736.25);
  EXPECT_EQ(k(1, 2), 1824.0);
  EXPECT_EQ(k(2, 2), 0.0);  // kept as in the file format's matrix, never 1
  EXPECT_EQ(k(0, 1), 0.0);
  EXPECT_EQ(k(1, 0), 0.0);
  EXPECT_FLOAT_EQ(calibration.rotX, 0.25f);
  EXPECT_FLOAT_EQ(calibration.extra1, 9.0f);
  EXPECT_FLOAT_EQ(calibration.rotZ, -0.5f);
  EXPECT_FLOAT_EQ(calibration.extra2, 1.0f);
  EXPECT_FLOAT_EQ(calibration.extra3, 2.0f);
  EXPECT_FLOAT_EQ(calibration.extra4, 3.0f);
}

TEST(CameraConfiguration, ShortFileLeavesTheRemainingValuesAtZero) {
  const auto calibration = readText("focal 800 cx 400 cy 300 rotX 0.5");
  ASSERT_TRUE(calibration.hasCameraMatrix());
  EXPECT_EQ(calibration.cameraMatrix.at<double>(0, 0), 800.0);
  EXPECT_FLOAT_EQ(calibration.rotX, 0.5f);
  EXPECT_EQ(calibration.rotZ, 0.0f);
  EXPECT_EQ(calibration.extra4, 0.0f);
}

TEST(CameraConfiguration, FirstUnparsableNumberReadsAsZeroAndStopsTheRead) {
  const auto calibration = readText("focal 800 cx oops cy 300 rotX 0.5 e 1 rotZ 2");
  EXPECT_EQ(calibration.cameraMatrix.at<double>(0, 0), 800.0);
  EXPECT_EQ(calibration.cameraMatrix.at<double>(0, 2), 0.0);
  EXPECT_EQ(calibration.cameraMatrix.at<double>(1, 2), 0.0);
  EXPECT_EQ(calibration.rotX, 0.0f);
  EXPECT_EQ(calibration.rotZ, 0.0f);
}

TEST(CameraConfiguration, MissingFileReadsNothing) {
  CameraCalibration calibration;
  calibration.rotX = 7.0f;
  EXPECT_FALSE(readCameraConfiguration("/nonexistent/Up.txt", calibration));
  EXPECT_FALSE(calibration.hasCameraMatrix());
  EXPECT_EQ(calibration.rotX, 7.0f);
}

TEST(CameraConfiguration, EmptyFileGivesAZeroMatrix) {
  bool opened = false;
  const auto calibration = readText("", &opened);
  EXPECT_TRUE(opened);
  ASSERT_TRUE(calibration.hasCameraMatrix());
  EXPECT_EQ(cv::countNonZero(calibration.cameraMatrix), 0);
}

}  // namespace
}  // namespace velmora
