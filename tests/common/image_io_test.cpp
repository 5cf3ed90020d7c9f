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

TEST(ReadColorImage, ReadsCompleteFilesAndRejectsTruncatedOnes) {
  TempDir dir;
  ASSERT_TRUE(cv::imwrite(dir.file("a.png"), pattern()));
  ASSERT_TRUE(cv::imwrite(dir.file("a.jpg"), pattern()));
  EXPECT_EQ(cv::norm(readColorImage(dir.file("a.png")), pattern(), cv::NORM_INF), 0.0);
  for (const char* name : {"a.jpg", "a.png"}) {
    const std::string bytes = testing::readFile(dir.file(name));
    testing::writeTextFile(dir.file("cut"), bytes.substr(0, bytes.size() * 2 / 3));
    EXPECT_TRUE(readColorImage(dir.file("cut")).empty()) << name;
  }
}

// Written in full under its name or not at all, even over an older file.
TEST(WriteImage, WritesTheWholeImageOrThrowsAndLeavesTheOldFile) {
  TempDir dir;
  writeImage(dir.file("out.png"), pattern());
  EXPECT_EQ(cv::norm(cv::imread(dir.file("out.png")), pattern(), cv::NORM_INF), 0.0);
  testing::writeTextFile(dir.file("out.png"), "old");
  for (const auto& [name, image] : {std::pair<std::string, cv::Mat>{"missing/out.png", pattern()},
                                    {"out.unknown", pattern()},
                                    {"out.png", cv::Mat()}}) {
    try {
      writeImage(dir.file(name), image);
      ADD_FAILURE() << name << " written";
    } catch (const Failure& failure) {
      EXPECT_EQ(std::string(failure.what()), "Write image: " + dir.file(name) + " error.");
    }
  }
  EXPECT_EQ(testing::readFile(dir.file("out.png")), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

}  // namespace
}  // namespace velmora
