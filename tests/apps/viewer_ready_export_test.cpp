// The viewer-ready export: panoramas framed as the library frames them, from the simulator's
// ground truth, exported by the tool and read back with exiv2.
#include <gtest/gtest.h>

#include <cmath>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "apps/tool_run.h"
#include "sim/builtin_scene.h"
#include "sim/equirect_scene.h"
#include "sim/ground_truth.h"

namespace velmora::testing {
namespace {

// A shot's camera details as a rig camera writes them.
const std::vector<std::pair<std::string, std::string>> kCameraDetails = {
    {"Exif.Image.Make", "Rigworks"},
    {"Exif.Image.Model", "RW-2 Up"},
    {"Exif.Photo.DateTimeOriginal", "2026:05:17 09:41:27"},
    {"Exif.GPSInfo.GPSLatitudeRef", "N"},
    {"Exif.GPSInfo.GPSLatitude", "47/1 22/1 1234/100"},
    {"Exif.GPSInfo.GPSLongitudeRef", "E"},
    {"Exif.GPSInfo.GPSLongitude", "8/1 32/1 4321/100"}};

std::string xmpText(const Exiv2::XmpData& xmp, const std::string& property) {
  const auto found = xmp.findKey(Exiv2::XmpKey("Xmp.GPano." + property));
  return found == xmp.end() ? "(absent)" : found->toString();
}

// Mean colour difference of an image and the truth moved down by `shift` rows (bilinear), over
// all but the three rows at either end, which the framing blends with its black bands.
double errorWithTruthMoved(const cv::Mat& image, const cv::Mat& truth, double shift) {
  cv::Mat moved;
  cv::warpAffine(truth, moved, cv::Matx23d(1, 0, 0, 0, 1, shift), truth.size(), cv::INTER_LINEAR,
                 cv::BORDER_REPLICATE);
  const cv::Range rows(3, image.rows - 3);
  return cv::norm(image.rowRange(rows), moved.rowRange(rows), cv::NORM_L1) /
         (3.0 * image.cols * rows.size());
}

TEST(ViewerReadyExport, RestoresTheSphereOfEveryGridShapeWithItsMetadataAndCamera) {
  TempDir dir;
  cv::Mat image = sim::makeBuiltinScene(1024, 512);
  cv::GaussianBlur(image, image, cv::Size(0, 0), 2.0);
  const sim::EquirectScene scene(image);

  cv::Mat shot(48, 64, CV_8UC3, cv::Scalar(90, 120, 150));
  ASSERT_TRUE(cv::imwrite(dir.file("shot.jpg"), shot));
  auto shotFile = Exiv2::ImageFactory::open(dir.file("shot.jpg"));
  for (const auto& [key, value] : kCameraDetails) shotFile->exifData()[key] = value;
  shotFile->writeMetadata();

  // Grids twice as wide as high (the whole sphere), wider (a band of latitudes) and narrower
  // than that (past the poles: only the rows between them), with the window's place on the
  // full sphere of max(W, H) x max(W, H) / 2 and its centre's longitude from the first head
  // position.
  const struct {
    int width, height;
    int left, top, windowWidth, windowHeight;
    double centreLongitude;
  } grids[] = {{512, 256, 0, 0, 512, 256, 180.0},
               {512, 128, 0, 64, 512, 128, 180.0},
               {384, 512, 64, 0, 384, 256, 135.0}};
  for (const auto& grid : grids) {
    SCOPED_TRACE(std::to_string(grid.width) + "x" + std::to_string(grid.height));
    const int full = std::max(grid.width, grid.height);
    const cv::Mat framed =
        sim::frameLikeLibrary(sim::panoramaTruth(scene, grid.width, grid.height));
    ASSERT_TRUE(cv::imwrite(dir.file("framed.png"), framed));
    expectRun(runTool(dir, "export360 " + dir.file("framed.png") + " " + dir.file("360.jpg") +
                               " --heading 30 --camera-shot " + dir.file("shot.jpg")),
              0, {"360.jpg"});

    auto exported = Exiv2::ImageFactory::open(dir.file("360.jpg"));
    exported->readMetadata();
    const Exiv2::XmpData& xmp = exported->xmpData();
    EXPECT_EQ(xmpText(xmp, "ProjectionType"), "equirectangular");
    EXPECT_EQ(xmpText(xmp, "UsePanoramaViewer"), "True");
    EXPECT_EQ(xmpText(xmp, "FullPanoWidthPixels"), std::to_string(full));
    EXPECT_EQ(xmpText(xmp, "FullPanoHeightPixels"), std::to_string(full / 2));
    EXPECT_EQ(xmpText(xmp, "CroppedAreaImageWidthPixels"), std::to_string(grid.windowWidth));
    EXPECT_EQ(xmpText(xmp, "CroppedAreaImageHeightPixels"), std::to_string(grid.windowHeight));
    EXPECT_EQ(xmpText(xmp, "CroppedAreaLeftPixels"), std::to_string(grid.left));
    EXPECT_EQ(xmpText(xmp, "CroppedAreaTopPixels"), std::to_string(grid.top));
    EXPECT_DOUBLE_EQ(std::stod(xmpText(xmp, "PoseHeadingDegrees")), 30.0 + grid.centreLongitude);
    for (const auto& [key, value] : kCameraDetails) {
      const auto found = exported->exifData().findKey(Exiv2::ExifKey(key));
      ASSERT_NE(found, exported->exifData().end()) << key;
      EXPECT_EQ(found->toString(), shotFile->exifData()[key].toString()) << key;
    }

    // The pixels are the truth's window of the full sphere, placed to within a quarter row: the
    // truth fits worse moved half a row or a row either way.
    const cv::Mat pixels = cv::imread(dir.file("360.jpg"));
    ASSERT_EQ(pixels.size(), cv::Size(grid.windowWidth, grid.windowHeight));
    const cv::Mat sphere = sim::sceneOnGrid(scene, full, full / 2, -2.0 * CV_PI * grid.left / full);
    const cv::Mat truth =
        sphere(cv::Rect(grid.left, grid.top, grid.windowWidth, grid.windowHeight));
    const double aligned = errorWithTruthMoved(pixels, truth, 0.0);
    EXPECT_LT(aligned, 3.0);
    for (double shift : {-1.0, -0.5, 0.5, 1.0}) {
      EXPECT_GT(errorWithTruthMoved(pixels, truth, shift), aligned) << shift;
    }
  }
}

TEST(ViewerReadyExport, RefusesWhatItCannotWriteAndLeavesNothing) {
  TempDir dir;
  ASSERT_TRUE(cv::imwrite(dir.file("pano.png"), cv::Mat(64, 128, CV_8UC3, cv::Scalar(40))));
  writeTextFile(dir.file("broken.jpg"), "not an image\n");
  const struct {
    std::string arguments, named, output;
  } cases[] = {
      {"export360 " + dir.file("pano.png") + " " + dir.file("out.png"), "JPEG", "out.png"},
      {"export360 " + dir.file("broken.jpg") + " " + dir.file("out.jpg"), "Cannot read", "out.jpg"},
      {"export360 " + dir.file("pano.png") + " " + dir.file("out.jpg") + " --camera-shot " +
           dir.file("broken.jpg"),
       "broken.jpg", "out.jpg"},
      {"export360 " + dir.file("pano.png") + " " + dir.file("out.jpg") + " --heading 400",
       "--heading", "out.jpg"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    expectRun(runTool(dir, c.arguments), c.named == "--heading" ? 105 : 1, {c.named});
    EXPECT_FALSE(std::filesystem::exists(dir.file(c.output)));
  }
}

}  // namespace
}  // namespace velmora::testing
