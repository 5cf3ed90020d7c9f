#include "rig/table_cache.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "api/status.h"
#include "support/test_support.h"

namespace velmora {
namespace {

using testing::TempDir;

CameraModel configuredModel() {
  CameraModel model(CameraGeometry{300, 200, 96, 48, kUpLens});
  model.calibration().cameraMatrix =
      (cv::Mat_<double>(3, 3) << 120.0, 0, 150.0, 0, 120.0, 100.0, 0, 0, 0);
  return model;
}

bool sameBytes(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() &&
         std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
}

TEST(TableCache, WrittenTableLoadsBackBitForBit) {
  TempDir dir;
  CameraModel built = configuredModel();
  buildTable(built, dir.file("table_Up.bin"));
  EXPECT_EQ(std::filesystem::file_size(dir.file("table_Up.bin")), 8u * 96 * 48);

  CameraModel loaded = configuredModel();
  ASSERT_TRUE(loadTable(loaded, dir.file("table_Up.bin")));
  EXPECT_TRUE(sameBytes(built.table(), loaded.table()));
}

TEST(TableCache, RecordsAreLittleEndianFloatPairsRowByRow) {
  TempDir dir;
  CameraModel model = configuredModel();
  buildTable(model, dir.file("t.bin"));
  const std::string bytes = testing::readFile(dir.file("t.bin"));
  const int row = 24;
  const int column = 48;
  float uv[2];
  std::memcpy(uv, bytes.data() + 8 * (row * 96 + column), 8);
  EXPECT_EQ(uv[0], model.table().at<cv::Vec2f>(row, column)[0]);
  EXPECT_EQ(uv[1], model.table().at<cv::Vec2f>(row, column)[1]);
  EXPECT_GT(uv[0], 0.0f);
}

TEST(TableCache, MissingOrShortFilesAreNotLoaded) {
  TempDir dir;
  CameraModel model = configuredModel();
  EXPECT_FALSE(loadTable(model, dir.file("none.bin")));
  testing::writeTextFile(dir.file("short.bin"), std::string(8 * 96 * 48 - 1, '\0'));
  EXPECT_FALSE(loadTable(model, dir.file("short.bin")));
  EXPECT_TRUE(model.table().empty());
}

TEST(TableCache, EnsureKeepsAnExistingTableWhateverTheConfigurationSays) {
  TempDir dir;
  std::string stale(8 * 96 * 48, '\0');
  const float marker[2] = {12.5f, 7.25f};
  std::memcpy(stale.data(), marker, 8);
  testing::writeTextFile(dir.file("table_Up.bin"), stale);

  CameraModel model = configuredModel();
  ensureTable(model, dir.file("table_Up.bin"));
  EXPECT_EQ(model.table().at<cv::Vec2f>(0, 0), cv::Vec2f(12.5f, 7.25f));
  EXPECT_EQ(testing::readFile(dir.file("table_Up.bin")), stale);
}

TEST(TableCache, EnsureBuildsAMissingTable) {
  TempDir dir;
  CameraModel model = configuredModel();
  ensureTable(model, dir.file("table_Down.bin"));
  EXPECT_TRUE(std::filesystem::exists(dir.file("table_Down.bin")));
  EXPECT_FALSE(model.table().empty());
}

TEST(TableCache, UnwritableDestinationThrowsAndLeavesNothingBehind) {
  TempDir dir;
  CameraModel model = configuredModel();
  EXPECT_THROW(buildTable(model, dir.file("missing/table_Up.bin")), Failure);
  // A directory in the table's place makes the final rename fail after the write succeeded.
  std::filesystem::create_directory(dir.file("table_Up.bin"));
  std::filesystem::create_directory(dir.file("table_Up.bin/x"));
  EXPECT_THROW(buildTable(model, dir.file("table_Up.bin")), Failure);
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    EXPECT_EQ(entry.path().filename(), "table_Up.bin");
  }
}

}  // namespace
}  // namespace velmora
