#include "common/image_io.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "api/status.h"
#include "support/test_support.h"

namespace velmora {
namespace {

using testing::TempDir;

cv::Mat pattern() {
  cv::Mat image(40, 60, CV_8UC3);
  cv::RNG(7).fill(image, cv::RNG::UNIFORM, 0, 256);
  return image;
}

TEST(ReadColorImage, ReadsCompleteFilesAndRejectsDamagedOnes) {
  TempDir dir;
  ASSERT_TRUE(cv::imwrite(dir.file("a.jpg"), pattern()));
  ASSERT_TRUE(cv::imwrite(dir.file("a.png"), pattern()));
  EXPECT_EQ(readColorImage(dir.file("a.jpg")).size(), cv::Size(60, 40));
  const cv::Mat png = readColorImage(dir.file("a.png"));
  EXPECT_EQ(cv::norm(png, pattern(), cv::NORM_INF), 0.0);

  for (const char* name : {"a.jpg", "a.png"}) {
    const std::string bytes = testing::readFile(dir.file(name));
    const std::string cut = dir.file(std::string("cut-") + name);
    testing::writeTextFile(cut, bytes.substr(0, bytes.size() * 2 / 3));
    EXPECT_TRUE(readColorImage(cut).empty()) << "truncated " << name;
  }
  testing::writeTextFile(dir.file("text.jpg"), "not an image at all");
  testing::writeTextFile(dir.file("empty.jpg"), "");
  EXPECT_TRUE(readColorImage(dir.file("text.jpg")).empty());
  EXPECT_TRUE(readColorImage(dir.file("empty.jpg")).empty());
  EXPECT_TRUE(readColorImage(dir.file("missing.jpg")).empty());
  EXPECT_TRUE(readColorImage(dir.path().string()).empty());
}

TEST(WriteImage, WritesTheWholeImageUnderItsName) {
  TempDir dir;
  writeImage(dir.file("out.png"), pattern());
  EXPECT_EQ(cv::norm(cv::imread(dir.file("out.png")), pattern(), cv::NORM_INF), 0.0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                          std::filesystem::directory_iterator()),
            1);
}

TEST(WriteImage, FailedWritesThrowAndLeaveNoFile) {
  TempDir dir;
  EXPECT_THROW(writeImage(dir.file("missing/out.png"), pattern()), Failure);
  EXPECT_THROW(writeImage(dir.file("out.unknown"), pattern()), Failure);
  EXPECT_THROW(writeImage(dir.file("out.png"), cv::Mat()), Failure);
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
  try {
    writeImage(dir.file("missing/out.png"), pattern());
  } catch (const Failure& failure) {
    EXPECT_EQ(std::string(failure.what()),
              "Write image: " + dir.file("missing/out.png") + " error.");
  }
}

TEST(WriteImage, KeepsTheOldFileWhenTheNewOneCannotBeWritten) {
  TempDir dir;
  testing::writeTextFile(dir.file("out.png"), "old");
  EXPECT_THROW(writeImage(dir.file("out.png"), cv::Mat()), Failure);
  EXPECT_EQ(testing::readFile(dir.file("out.png")), "old");
}

}  // namespace
}  // namespace velmora
