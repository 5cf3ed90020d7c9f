#include "common/buffer_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <opencv2/imgproc.hpp>
#include <thread>
#include <vector>

namespace velmora {
namespace {

constexpr std::size_t kMegabyte = std::size_t(1) << 20;

// A pooled single-channel byte image of `megabytes` MB.
cv::Mat pooledBytes(int megabytes) {
  return pooledMat(megabytes, static_cast<int>(kMegabyte), CV_8U);
}

void expectWithinMostInUse() {
  const BufferPoolUsage usage = bufferPoolUsage();
  EXPECT_LE(usage.kept + usage.inUse, usage.mostInUse);
}

TEST(BufferPool, HandsAFreedBufferToTheNextRequestOfItsSizeWhileASessionIsOpen) {
  const uchar* first = nullptr;
  {
    const BufferPoolSession session;
    cv::Mat image = pooledBytes(2);
    first = image.data;
    image.release();
    EXPECT_EQ(bufferPoolUsage().kept, 2 * kMegabyte);
    // Also when an OpenCV function allocates its output.
    cv::Mat source(2, static_cast<int>(kMegabyte), CV_8U, cv::Scalar(9));
    cv::Mat output = pooledMat();
    cv::resize(source, output, source.size(), 0.0, 0.0, cv::INTER_NEAREST);
    EXPECT_EQ(output.data, first);
    EXPECT_EQ(cv::countNonZero(output != 9), 0);
    EXPECT_EQ(bufferPoolUsage().kept, 0u);
    // Small buffers are not kept.
    pooledMat(16, 16, CV_8U).release();
    EXPECT_EQ(bufferPoolUsage().kept, 0u);
    output.release();
    EXPECT_EQ(bufferPoolUsage().kept, 2 * kMegabyte);
  }
  EXPECT_EQ(bufferPoolUsage().kept, 0u);
  EXPECT_EQ(bufferPoolUsage().inUse, 0u);
}

TEST(BufferPool, KeepsNothingWithoutASessionAndFreesWhatOutlivesIt) {
  pooledBytes(3).release();
  EXPECT_EQ(bufferPoolUsage().kept, 0u);
  cv::Mat outliving;
  {
    const BufferPoolSession outer;
    {
      const BufferPoolSession inner;  // sessions nest
      outliving = pooledBytes(3);
    }
    pooledBytes(2).release();
    EXPECT_EQ(bufferPoolUsage().kept, 2 * kMegabyte);
  }
  EXPECT_EQ(bufferPoolUsage().inUse, 3 * kMegabyte);
  outliving.release();
  EXPECT_EQ(bufferPoolUsage().kept, 0u);
  EXPECT_EQ(bufferPoolUsage().inUse, 0u);
}

TEST(BufferPool, NeverKeepsMoreThanTheMostInUseAllowsBesideWhatIsInUse) {
  pooledBytes(12).release();  // use before the session does not raise what it may keep
  const BufferPoolSession session;
  EXPECT_EQ(bufferPoolUsage().mostInUse, 0u);
  cv::Mat a = pooledBytes(4), b = pooledBytes(4);
  EXPECT_EQ(bufferPoolUsage().mostInUse, 8 * kMegabyte);
  a.release();
  b.release();
  expectWithinMostInUse();
  // No kept buffer fits: kept ones go until the new one fits under the most in use.
  cv::Mat c = pooledBytes(6);
  expectWithinMostInUse();
  EXPECT_EQ(bufferPoolUsage().kept, 0u);
  cv::Mat d = pooledBytes(1);
  c.release();
  cv::Mat e = pooledBytes(5);
  expectWithinMostInUse();
  EXPECT_EQ(bufferPoolUsage().inUse, 6 * kMegabyte);
}

TEST(BufferPool, ThreadsNeverShareABuffer) {
  constexpr int kThreads = 8;
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &mismatches] {
      for (int round = 0; round < 40; ++round) {
        const BufferPoolSession session;
        cv::Mat image = pooledBytes(1 + (round + t) % 3);
        image.setTo(cv::Scalar(t + 1));
        std::this_thread::yield();
        if (cv::countNonZero(image != t + 1) != 0) ++mismatches;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches.load(), 0);
  EXPECT_EQ(bufferPoolUsage().kept, 0u);
  EXPECT_EQ(bufferPoolUsage().inUse, 0u);
}

}  // namespace
}  // namespace velmora
