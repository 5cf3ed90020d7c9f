// Six simulated shots of each camera stitched through the public interface and compared with the
// scene they were rendered from.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "api/stitch_handle.h"
#include "common/image_io.h"
#include "rig/ring_projection.h"
#include "sim/ground_truth.h"
#include "sim/rig_simulation.h"
#include "sim/stitch_agreement.h"
#include "support/simulated_bracket.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::TempDir;

// The grid's width is a multiple of six: the bands tile it exactly.
constexpr int kShotWidth = 684, kShotHeight = 456, kGridWidth = 1152, kGridHeight = 576;
constexpr int kBand = kGridWidth / 6;

struct Stitched {
  cv::Mat panorama, truth;
  cv::Mat seen;  // 255 where every shot pixel behind the framed cell was seen
  std::vector<std::string> shots;
  void* handle = nullptr;
};

// The built-in scene, softened a little as a lens would: the grid then holds no detail finer than
// the shots can resolve, so the measure sees alignment, not resampling.
cv::Mat testScene() {
  cv::Mat scene = sim::makeBuiltinScene(kGridWidth, kGridHeight);
  cv::GaussianBlur(scene, scene, cv::Size(0, 0), 1.0);
  return scene;
}

// Mean over the mask of the smallest colour difference between a pixel and the truth within
// `reach` pixels of it. Parallax moves content by a few pixels, which this forgives; ghosting (two
// copies of an edge blended) matches no truth pixel and is not forgiven.
double displacementTolerantError(const cv::Mat& image, const cv::Mat& truth, const cv::Mat& mask,
                                 int reach) {
  cv::Mat best(image.size(), CV_32F, cv::Scalar(1e9));
  for (int dy = -reach; dy <= reach; ++dy) {
    for (int dx = -reach; dx <= reach; ++dx) {
      cv::Mat moved, difference;
      cv::warpAffine(truth, moved, cv::Matx23d(1, 0, dx, 0, 1, dy), truth.size(), cv::INTER_NEAREST,
                     cv::BORDER_REPLICATE);
      cv::absdiff(image, moved, difference);
      difference.convertTo(difference, CV_32F);
      cv::transform(difference, difference, cv::Matx13f(1, 1, 1));
      best = cv::min(best, difference);
    }
  }
  return cv::mean(best, mask)[0];
}

class SingleStitchQuality : public ::testing::Test {
 protected:
  void TearDown() override {
    for (void* handle : handles_) ZEMU_DestroyOptFlowStitchHandle(handle);
  }

  Stitched stitch(const cv::Mat& scene, sim::RigCamera camera, const sim::Parallax& parallax) {
    sim::SimulationRequest request = testing::simulationRequest(
        camera, {kShotWidth, kShotHeight}, kGridWidth, kGridHeight,
        dir_.file(std::string(sim::cameraName(camera)) + "-" + std::to_string(handles_.size())));
    request.parallax = parallax;
    request.shotExtension = ".png";
    const sim::SimulatedFiles files = sim::simulateCamera(scene, request);

    Stitched result;
    result.shots = sim::shotsOfBracket(files, 0);
    result.handle = ZEMU_CreateOptFlowStitchHandle();
    handles_.push_back(result.handle);
    const std::string output = request.outputDir + "/panorama.png";
    CapturedConsole console;
    ZEMU_InitOptFlowStitchHandle(result.handle, files.configPath.c_str(), dir_.path().c_str(),
                                 kShotWidth, kShotHeight, kGridWidth, kGridHeight);
    ZEMU_ExecuteOptFlowStitchHandle(result.handle, files.configPath.c_str(),
                                    testing::pointers(result.shots).data(), output.c_str(), 1.0f,
                                    1.0f, 1.0f);
    EXPECT_EQ(ZEMU_GetOptFlowStitchCode(result.handle), 0u) << console.err();
    result.panorama = cv::imread(output);
    result.truth = cv::imread(files.truthPath);
    // The seen region without its rim, where a seam band's two shots do not both reach.
    result.seen = sim::seenInterior(cv::imread(files.seenPath, cv::IMREAD_GRAYSCALE));
    return result;
  }

  // The same projected shots joined by a plain linear cross-fade across every seam band, no
  // flow: the baseline that the flow-guided seams must beat when the shots disagree.
  cv::Mat featherBlend(const Stitched& run, Camera camera) {
    std::vector<cv::Mat> shots;
    for (const auto& path : run.shots) shots.push_back(readColorImage(path));
    const auto& handle = *static_cast<const StitchHandle*>(run.handle);
    const std::vector<cv::Mat> projected = projectRing(handle.camera(camera), shots);
    const int width = projected[0].cols, band = width / 6;
    cv::Mat strip(projected[0].rows, band * 6, CV_8UC3);
    for (int i = 0; i < 6; ++i) {
      for (int x = 0; x < band; ++x) {
        const float t = static_cast<float>(x) / band;
        cv::addWeighted(projected[i].col(width / 2 + x), 1.0 - t,
                        projected[(i + 1) % 6].col(width / 3 + x), t, 0.0, strip.col(i * band + x));
      }
    }
    cv::resize(strip, strip, projected[0].size(), 0, 0, cv::INTER_LINEAR);
    return sim::frameLikeLibrary(strip);
  }

  TempDir dir_;
  std::vector<void*> handles_;
};

TEST_F(SingleStitchQuality, BothCamerasReproduceTheSceneWhereItHasIt) {
  const cv::Mat scene = testScene();
  for (sim::RigCamera camera : {sim::RigCamera::Up, sim::RigCamera::Down}) {
    SCOPED_TRACE(sim::cameraName(camera));
    const Stitched run = stitch(scene, camera, sim::Parallax());
    ASSERT_EQ(run.panorama.size(), cv::Size(kGridWidth, kGridHeight));
    const double stitched = sim::maskedPsnr(run.panorama, run.truth, run.seen);

    // The floor sits between the correct result and what a misplaced one scores: one band off
    // (wrong order or head step), or the right result half a pixel off.
    cv::Mat rolled;
    cv::hconcat(run.panorama.colRange(kBand, kGridWidth), run.panorama.colRange(0, kBand), rolled);
    cv::Mat halfPixel;
    cv::warpAffine(run.truth, halfPixel, cv::Matx23d(1, 0, 0.5, 0, 1, 0), run.truth.size(),
                   cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    const double misplaced = sim::maskedPsnr(rolled, run.truth, run.seen);
    const double shifted = sim::maskedPsnr(halfPixel, run.truth, run.seen);
    std::cout << sim::cameraName(camera) << " stitched PSNR " << stitched << " dB, one band off "
              << misplaced << " dB, truth half a pixel off " << shifted << " dB" << std::endl;
    EXPECT_GT(stitched, 40.0);
    EXPECT_LT(misplaced, 40.0);
    EXPECT_LT(shifted, 40.0);

    // Every seam band on its own.
    for (int i = 0; i < 6; ++i) {
      const cv::Rect columns(i * kBand, 0, kBand, kGridHeight);
      EXPECT_GT(sim::maskedPsnr(run.panorama(columns), run.truth(columns), run.seen(columns)), 38.0)
          << "band " << i;
    }
  }
}

TEST_F(SingleStitchQuality, FlowGuidedSeamsBeatAPlainCrossFadeUnderParallax) {
  const cv::Mat scene = testScene();
  sim::Parallax parallax;
  parallax.nodalOffset = 0.08;
  parallax.sceneRadius = 2.0;
  for (sim::RigCamera camera : {sim::RigCamera::Up, sim::RigCamera::Down}) {
    SCOPED_TRACE(sim::cameraName(camera));
    const Stitched run = stitch(scene, camera, parallax);
    const cv::Mat feather =
        featherBlend(run, camera == sim::RigCamera::Up ? Camera::Up : Camera::Down);
    // The middle third of every band, where both shots meet.
    cv::Mat meeting = cv::Mat::zeros(run.seen.size(), CV_8U);
    for (int i = 0; i < 6; ++i)
      meeting.colRange(i * kBand + kBand / 3, i * kBand + 2 * kBand / 3) = 255;
    meeting &= run.seen;
    const double stitched = displacementTolerantError(run.panorama, run.truth, meeting, 4);
    const double faded = displacementTolerantError(feather, run.truth, meeting, 4);
    std::cout << sim::cameraName(camera) << " with parallax, error where shots meet: stitched "
              << stitched << ", cross-fade " << faded << std::endl;
    EXPECT_LT(stitched, faded * 0.85);
  }
}

// Real panoramas, when the project's shared data sit beside the checkout, as scenes.
TEST_F(SingleStitchQuality, RealPanoramasAsScenes) {
  const std::filesystem::path folder =
      std::filesystem::path(VELMORA_SOURCE_DIR) / ".." / "shared" / "data" / "real";
  std::vector<std::filesystem::path> images;
  if (std::filesystem::is_directory(folder)) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      const std::string extension = entry.path().extension().string();
      if (extension == ".jpg" || extension == ".jpeg") images.push_back(entry.path());
    }
  }
  if (images.empty()) GTEST_SKIP() << "no real panoramas in " << folder;
  std::sort(images.begin(), images.end());
  for (const auto& path : images) {
    SCOPED_TRACE(path.filename().string());
    cv::Mat scene = cv::imread(path.string());
    ASSERT_FALSE(scene.empty());
    cv::resize(scene, scene, cv::Size(kGridWidth, kGridHeight), 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(scene, scene, cv::Size(0, 0), 1.0);
    const Stitched run = stitch(scene, sim::RigCamera::Down, sim::Parallax());
    const double stitched = sim::maskedPsnr(run.panorama, run.truth, run.seen);
    std::cout << path.filename().string() << ": " << stitched << " dB" << std::endl;
    EXPECT_GT(stitched, 40.0);
  }
}

}  // namespace
}  // namespace velmora
