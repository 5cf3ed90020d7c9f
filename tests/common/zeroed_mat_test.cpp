#include "common/zeroed_mat.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

TEST(ZeroedMat, IsAllZeroOfTheSizeAndTypeAskedAndOwnsItsMemory) {
  // Small blocks come from the heap, where freed memory may hold old bytes; large ones are pages.
  for (cv::Size size : {cv::Size(3, 2), cv::Size(4096, 4096)}) {
    cv::Mat(size, CV_32FC2, cv::Scalar::all(7)).release();  // leaves old bytes behind
    cv::Mat image = zeroedMat(size.height, size.width, CV_32FC2);
    ASSERT_TRUE(image.size() == size && image.type() == CV_32FC2 && image.isContinuous());
    EXPECT_EQ(cv::countNonZero(image.reshape(1) != 0), 0) << size;
    image.at<cv::Vec2f>(size.height - 1, size.width - 1) = cv::Vec2f(1.5f, 2.5f);
    const cv::Mat shared = image;
    image.release();
    EXPECT_EQ(shared.at<cv::Vec2f>(size.height - 1, size.width - 1), cv::Vec2f(1.5f, 2.5f));
  }
}

}  // namespace
}  // namespace velmora
