// (Truncated and non-image shots are the bad-input test's, through the public interface.)
#include "common/image_io.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "common/status.h"
#include "support/test_support.h"

namespace velmora::testing {
namespace {

TEST(WriteImage, WritesTheWholeImageOrThrowsAndLeavesTheOldFile) {
  TempDir dir;
  cv::Mat image(40, 60, CV_8UC3);
  cv::randu(image, 0, 256);
  writeImage(dir.file("out.png"), image);
  EXPECT_EQ(cv::norm(cv::imread(dir.file("out.png")), image, cv::NORM_INF), 0.0);
  writeTextFile(dir.file("out.png"), "old");
  for (const auto& [name, written] : {std::pair<std::string, cv::Mat>{"missing/out.png", image},
                                      {"out.unknown", image},
                                      {"out.png", cv::Mat()}}) {
    try {
      writeImage(dir.file(name), written);
      ADD_FAILURE() << name << " written";
    } catch (const Failure& failure) {
      EXPECT_EQ(std::string(failure.what()), "Write image: " + dir.file(name) + " error.");
    }
  }
  EXPECT_EQ(readFile(dir.file("out.png")), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

}  // namespace
}  // namespace velmora::testing
