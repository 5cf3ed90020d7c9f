// The photo-sphere metadata of a viewer-ready panorama: the XMP properties that panorama viewers
// and photo platforms read to show an equirectangular image as a sphere, and the camera details
// taken over from a shot.
#pragma once

#include <string>

#include "velmora/equirect_export.h"

namespace velmora::tool {

// Adds to the image file at `path` (already written) the GPano properties of `window`
// (ProjectionType equirectangular, UsePanoramaViewer, the full sphere's and the window's sizes,
// the window's position, and PoseHeadingDegrees: the heading of the full sphere's centre), and
// copies make, model, capture time and GPS position from details.cameraShot's EXIF when that
// names a shot (what the shot lacks stays absent). Throws std::runtime_error naming the file
// when either cannot be read or the metadata cannot be written.
void writePhotoSphereMetadata(const std::string& path, const SphereWindow& window,
                              const ViewerReadyDetails& details);

}  // namespace velmora::tool
