// Large image buffers kept for reuse while an operation runs. The steps of a stitch free and soon
// need again buffers of the very same sizes (every flow job builds the same pyramids, every seam
// band warps into the same size); taking them back from the pool instead of from the system saves
// the page faults and the clearing of fresh pages that the system charges for every new block.
//
// A Mat takes its buffers from the pool when it is made by pooledMat(): its own create() and any
// OpenCV function that writes into it allocate there. Buffers of a pooled Mat go back to the pool
// when its last copy lets go of them. While at least one BufferPoolSession is open (on any thread)
// the pool keeps them; when the last session closes, it frees what it keeps, and buffers released
// after that are freed at once. The pool never holds more than the operation needed at once: the
// buffers it keeps and those in use together stay within the most that were in use at one time
// since the sessions opened, so it does not raise the operation's peak memory.
#pragma once

#include <cstddef>
#include <opencv2/core.hpp>

namespace velmora {

// Buffers below this size are not worth keeping: they come from and go back to the system.
constexpr std::size_t kPooledBufferMinimumBytes = std::size_t(1) << 20;

// Keeps the pool open for its lifetime (sessions may nest and overlap across threads).
class BufferPoolSession {
 public:
  BufferPoolSession();
  ~BufferPoolSession();
  BufferPoolSession(const BufferPoolSession&) = delete;
  BufferPoolSession& operator=(const BufferPoolSession&) = delete;
};

// An empty Mat whose buffers come from the pool.
cv::Mat pooledMat();
// A pooled Mat of the given size and type (contents undefined, as with cv::Mat's own).
cv::Mat pooledMat(cv::Size size, int type);
cv::Mat pooledMat(int rows, int cols, int type);

// What the pool accounts for, in bytes: buffers of at least kPooledBufferMinimumBytes that are in
// use, those kept for reuse, and the most in use at one time since the sessions opened.
struct BufferPoolUsage {
  std::size_t inUse;
  std::size_t kept;
  std::size_t mostInUse;
};
BufferPoolUsage bufferPoolUsage();

}  // namespace velmora
