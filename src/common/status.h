// Status codes stored in a handle at the end of every operation, and the exception type by which
// internal code reports a detected failure.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace velmora {

enum StatusCode : int32_t {
  kStatusOk = 0,
  kStatusFailure = -1,
  kStatusOutOfMemory = -2,
};

// A failure the library detected itself (an unreadable file, a size that does not fit, a cache
// that cannot be written). Its message is the one line the export's guard prints on standard
// error before it stores kStatusFailure.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace velmora
