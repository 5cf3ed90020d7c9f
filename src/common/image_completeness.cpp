#include "common/image_completeness.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace velmora {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kMarkerPrefix = 0xFF;
constexpr unsigned char kStartOfScan = 0xDA;
constexpr unsigned char kEndOfImage = 0xD9;
constexpr unsigned char kStartOfImage = 0xD8;

uint32_t bigEndian(const unsigned char* bytes, int count) {
  uint32_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
  return value;
}

bool startsWith(const Bytes& bytes, std::initializer_list<unsigned char> prefix) {
  return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

// Markers that stand alone, without a length: TEM and the restart markers RST0 to RST7.
bool isStandalone(unsigned char marker) {
  return marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7);
}

// The offset of the next marker after entropy-coded data starting at `at` (pointing at its
// 0xFF), or bytes.size() when the data runs to the end of the file. Inside the data 0xFF 0x00 is
// a stuffed 0xFF byte and restart markers belong to the data.
size_t endOfEntropyCodedData(const Bytes& bytes, size_t at) {
  while (at < bytes.size()) {
    const void* found = std::memchr(bytes.data() + at, kMarkerPrefix, bytes.size() - at);
    if (found == nullptr) return bytes.size();
    at = static_cast<size_t>(static_cast<const unsigned char*>(found) - bytes.data());
    if (at + 1 >= bytes.size()) return bytes.size();
    const unsigned char next = bytes[at + 1];
    if (next == 0x00 || isStandalone(next)) {
      at += 2;
    } else if (next == kMarkerPrefix) {
      ++at;  // fill byte before a marker
    } else {
      return at;
    }
  }
  return bytes.size();
}

bool jpegIsComplete(const Bytes& bytes) {
  bool scanned = false;
  size_t at = 2;  // after the start marker
  while (at < bytes.size()) {
    if (bytes[at] != kMarkerPrefix) {  // stray bytes before a marker, which decoders skip
      const void* found = std::memchr(bytes.data() + at, kMarkerPrefix, bytes.size() - at);
      if (found == nullptr) return false;
      at = static_cast<size_t>(static_cast<const unsigned char*>(found) - bytes.data());
    }
    while (at < bytes.size() && bytes[at] == kMarkerPrefix) ++at;
    if (at >= bytes.size()) return false;
    const unsigned char marker = bytes[at++];
    if (marker == kEndOfImage) return scanned;
    if (isStandalone(marker)) continue;
    if (marker == 0x00 || marker == kStartOfImage || at + 2 > bytes.size()) return false;
    const size_t length = bigEndian(&bytes[at], 2);
    if (length < 2 || length > bytes.size() - at) return false;
    at += length;
    if (marker == kStartOfScan) {
      scanned = true;
      at = endOfEntropyCodedData(bytes, at);
    }
  }
  return false;
}

bool pngIsComplete(const Bytes& bytes) {
  constexpr size_t kSignature = 8, kChunkFrame = 12;  // length, type, CRC
  size_t at = kSignature;
  while (bytes.size() - at >= kChunkFrame) {
    const size_t length = bigEndian(&bytes[at], 4);
    if (length > bytes.size() - at - kChunkFrame) return false;
    if (std::memcmp(&bytes[at + 4], "IEND", 4) == 0) return true;
    at += kChunkFrame + length;
  }
  return false;
}

}  // namespace

bool imageDataIsComplete(const Bytes& bytes) {
  if (startsWith(bytes, {0xFF, kStartOfImage})) return jpegIsComplete(bytes);
  if (startsWith(bytes, {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'})) return pngIsComplete(bytes);
  return true;
}

}  // namespace velmora
