// The rig's files: the camera configuration text and the projection table cache.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "common/status.h"
#include "rig/camera_config.h"
#include "rig/table_cache.h"
#include "support/test_support.h"

namespace velmora {
namespace {

using testing::TempDir;

TEST(CameraConfiguration, NumbersCountByPositionAndAnUnparsableOneEndsTheRead) {
  // The nine numbers in file order: focal, centre x and y, rotX, extra1, rotZ, extra2 to 4
  // (all nine given: a braced list leaves the rest of a cv::Vec uninitialised).
  const std::pair<const char*, cv::Vec<double, 9>> cases[] = {
      {"f 1000.5\n7 2736.25\n- 1824\nrx 0.25 e1 9 rz -0.5\ne2 1 e3 2 e4 3\n",  // labels ignored
       {1000.5, 2736.25, 1824, 0.25, 9, -0.5, 1, 2, 3}},
      {"focal 800 cx 400 cy 300 rotX 0.5", {800, 400, 300, 0.5, 0, 0, 0, 0, 0}},
      {"focal 800 cx oops cy 300 rotX 0.5 e 1 rotZ 2", {800, 0, 0, 0, 0, 0, 0, 0, 0}}};
  TempDir dir;
  for (const auto& [text, v] : cases) {
    SCOPED_TRACE(text);
    testing::writeTextFile(dir.file("Up.txt"), text);
    CameraCalibration read;
    ASSERT_TRUE(readCameraConfiguration(dir.file("Up.txt"), read));
    ASSERT_TRUE(read.hasCameraMatrix());
    // The matrix's last row stays zero, as in the file format, never (0, 0, 1).
    const cv::Matx33d expected(v[0], 0, v[1], 0, v[0], v[2], 0, 0, 0);
    EXPECT_EQ(cv::norm(read.cameraMatrix, cv::Mat(expected), cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::Vec6d(read.rotX, read.extra1, read.rotZ, read.extra2, read.extra3, read.extra4),
              cv::Vec6d(v[3], v[4], v[5], v[6], v[7], v[8]));
  }
  CameraCalibration untouched;
  untouched.rotX = 7.0f;
  EXPECT_FALSE(readCameraConfiguration(dir.file("missing.txt"), untouched));
  EXPECT_FALSE(untouched.hasCameraMatrix());
  EXPECT_EQ(untouched.rotX, 7.0f);
}

constexpr std::size_t kTableBytes = 8 * 96 * 48;

CameraModel configuredModel() {
  CameraModel model(CameraGeometry{300, 200, 96, 48, kUpLens});
  model.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << 120.0, 0, 150.0, 0, 120.0, 100.0, 0, 0, 0);
  return model;
}

TEST(TableCache, FileHoldsTheFloatPairsRowByRowAndLoadsBackBitForBit) {
  TempDir dir;
  CameraModel built = configuredModel();
  buildTable(built, dir.file("table_Up.bin"));
  const std::string bytes = testing::readFile(dir.file("table_Up.bin"));
  ASSERT_EQ(bytes.size(), kTableBytes);
  EXPECT_EQ(std::memcmp(bytes.data(), built.table().data, kTableBytes), 0);
  EXPECT_GT(built.table().at<cv::Vec2f>(24, 48)[0], 0.0f);  // not an all-zero table

  CameraModel loaded = configuredModel();
  ASSERT_TRUE(loadTable(loaded, dir.file("table_Up.bin")));
  EXPECT_EQ(std::memcmp(loaded.table().data, bytes.data(), kTableBytes), 0);
}

TEST(TableCache, FailedRenameThrowsAndLeavesNothingBehind) {
  TempDir dir;
  CameraModel model = configuredModel();
  // A directory in the table's place makes the final rename fail after the write succeeded.
  std::filesystem::create_directories(dir.file("table_Up.bin/x"));
  EXPECT_THROW(buildTable(model, dir.file("table_Up.bin")), Failure);
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(entry.path().filename(), "table_Up.bin");
}

}  // namespace
}  // namespace velmora
