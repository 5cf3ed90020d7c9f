#include "velmora/gpano_metadata.h"

#include <cmath>
#include <exiv2/exiv2.hpp>
#include <mutex>
#include <stdexcept>

namespace velmora::tool {

namespace {

constexpr char kPanoramaNamespace[] = "http://ns.google.com/photos/1.0/panorama/";

// The camera's details a panorama inherits from its first shot; GPS tags are taken as a group.
constexpr const char* kCameraKeys[] = {"Exif.Image.Make",
                                       "Exif.Image.Model",
                                       "Exif.Photo.DateTimeOriginal",
                                       "Exif.Photo.SubSecTimeOriginal",
                                       "Exif.Photo.DateTimeDigitized",
                                       "Exif.Image.DateTime"};
constexpr char kGpsGroup[] = "GPSInfo";

void prepareMetadataLibrary() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::error);
    Exiv2::XmpParser::initialize();
    // Older library versions do not know the panorama namespace.
    if (Exiv2::XmpProperties::prefix(kPanoramaNamespace).empty()) {
      Exiv2::XmpProperties::registerNs(kPanoramaNamespace, "GPano");
    }
  });
}

// The image opened with its metadata read (the factory's smart pointer).
auto openImage(const std::string& path) {
  auto image = Exiv2::ImageFactory::open(path);
  image->readMetadata();
  return image;
}

Exiv2::ExifData cameraDetailsOf(const std::string& shotPath) {
  const auto image = openImage(shotPath);
  const Exiv2::ExifData& shot = image->exifData();
  Exiv2::ExifData details;
  for (const char* key : kCameraKeys) {
    const auto found = shot.findKey(Exiv2::ExifKey(key));
    if (found != shot.end()) details.add(*found);
  }
  for (const Exiv2::Exifdatum& datum : shot) {
    if (datum.groupName() == kGpsGroup) details.add(datum);
  }
  return details;
}

}  // namespace

void writePhotoSphereMetadata(const std::string& path, const SphereWindow& window,
                              const ViewerReadyDetails& details) {
  prepareMetadataLibrary();
  const std::string* current = &path;
  try {
    Exiv2::ExifData camera;
    if (!details.cameraShot.empty()) {
      current = &details.cameraShot;
      camera = cameraDetailsOf(details.cameraShot);
    }
    current = &path;
    auto image = openImage(path);

    Exiv2::XmpData xmp = image->xmpData();
    double heading =
        std::fmod(details.firstPositionHeading + window.centreLongitudeDegrees(), 360.0);
    if (heading < 0.0) heading += 360.0;
    xmp["Xmp.GPano.ProjectionType"] = "equirectangular";
    xmp["Xmp.GPano.UsePanoramaViewer"] = true;
    xmp["Xmp.GPano.FullPanoWidthPixels"] = window.fullWidth;
    xmp["Xmp.GPano.FullPanoHeightPixels"] = window.fullHeight;
    xmp["Xmp.GPano.CroppedAreaImageWidthPixels"] = window.width;
    xmp["Xmp.GPano.CroppedAreaImageHeightPixels"] = window.height;
    xmp["Xmp.GPano.CroppedAreaLeftPixels"] = window.left;
    xmp["Xmp.GPano.CroppedAreaTopPixels"] = window.top;
    xmp["Xmp.GPano.PoseHeadingDegrees"] = heading;
    image->setXmpData(xmp);

    Exiv2::ExifData exif = image->exifData();
    for (const Exiv2::Exifdatum& datum : camera) exif[datum.key()] = datum.value();
    image->setExifData(exif);
    image->writeMetadata();
  } catch (const Exiv2::AnyError& error) {
    throw std::runtime_error("Cannot carry the metadata of " + *current + ": " + error.what());
  }
}

}  // namespace velmora::tool
