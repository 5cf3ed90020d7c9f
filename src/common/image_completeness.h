// Whether the encoded bytes of a shot hold the whole image. Cameras append data after the image
// (zero padding, maker trailers, a video), and an EXIF thumbnail carries an end marker of its
// own, so neither the file's last bytes nor the first end marker say whether the image is whole:
// the check follows the format's own structure to the image's end.
#pragma once

#include <vector>

namespace velmora {

// For a JPEG: false unless its marker segments lead from the start marker through the frame's
// scans to the end marker, each segment inside the file. For a PNG: false unless its chunks lead
// from the signature to the IEND chunk, each inside the file. Whatever follows the end is
// ignored. Other formats are left to their decoders: true.
bool imageDataIsComplete(const std::vector<unsigned char>& bytes);

}  // namespace velmora
