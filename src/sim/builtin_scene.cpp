#include "sim/builtin_scene.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "common/status.h"

namespace velmora::sim {

namespace {

// Fixed seeds: the scene must not change between runs or machines.
constexpr uint64_t kLayoutSeed = 0x5eed0001;
constexpr uint64_t kGrainSeed = 0x5eed0002;

const cv::Vec3d kZenith(150, 70, 25);
const cv::Vec3d kSkyHorizon(238, 214, 186);
const cv::Vec3d kGroundHorizon(70, 120, 115);
const cv::Vec3d kNadir(30, 45, 60);
const cv::Scalar kOutline(35, 30, 30);
const cv::Scalar kMarker(200, 40, 220);

// Degrees to pixels of the scene.
class SceneScale {
 public:
  SceneScale(int width, int height) : width_(width), height_(height) {}
  double x(double longitude) const { return longitude / 360.0 * width_; }
  double y(double latitude) const { return (90.0 - latitude) / 180.0 * height_; }
  int thickness() const { return std::max(1, static_cast<int>(std::lround(height_ / 700.0))); }
  int width() const { return width_; }
  int height() const { return height_; }

 private:
  int width_;
  int height_;
};

cv::Point at(const SceneScale& s, double longitude, double latitude) {
  return cv::Point(static_cast<int>(std::lround(s.x(longitude))),
                   static_cast<int>(std::lround(s.y(latitude))));
}

// Runs draw(offset) for the copies of a shape that reach into the image across the seam at 0
// and 360 degrees (offset in pixels).
template <typename Draw>
void drawWrapped(const SceneScale& s, const Draw& draw) {
  for (int offset : {-s.width(), 0, s.width()}) draw(offset);
}

void paintSkyAndGround(cv::Mat& scene) {
  for (int y = 0; y < scene.rows; ++y) {
    const double latitude = 90.0 - 180.0 * (y + 0.5) / scene.rows;
    cv::Vec3d colour;
    if (latitude >= 0.0) {
      const double t = std::pow(latitude / 90.0, 0.6);
      colour = kSkyHorizon * (1.0 - t) + kZenith * t;
    } else {
      const double t = -latitude / 90.0;
      colour = kGroundHorizon * (1.0 - t) + kNadir * t;
    }
    scene.row(y).setTo(cv::Scalar(colour[0], colour[1], colour[2]));
  }
}

void paintClouds(cv::Mat& scene, const SceneScale& s, cv::RNG& rng) {
  cv::Mat clouds = cv::Mat::zeros(scene.size(), CV_8UC1);
  for (int k = 0; k < 14; ++k) {
    const double longitude = rng.uniform(0.0, 360.0);
    const double latitude = rng.uniform(35.0, 75.0);
    const cv::Size axes(std::max(1, static_cast<int>(s.x(rng.uniform(8.0, 22.0)))),
                        std::max(1, static_cast<int>(s.height() * rng.uniform(0.01, 0.03))));
    drawWrapped(s, [&](int offset) {
      cv::ellipse(clouds, at(s, longitude, latitude) + cv::Point(offset, 0), axes, 0.0, 0.0, 360.0,
                  cv::Scalar(255), cv::FILLED, cv::LINE_AA);
    });
  }
  const int blur = std::max(1, s.width() / 300) * 2 + 1;
  cv::GaussianBlur(clouds, clouds, cv::Size(blur, blur), 0.0);
  for (int y = 0; y < scene.rows; ++y) {
    const uchar* alpha = clouds.ptr<uchar>(y);
    cv::Vec3b* pixel = scene.ptr<cv::Vec3b>(y);
    for (int x = 0; x < scene.cols; ++x) {
      const float a = alpha[x] * (0.85f / 255.0f);
      for (int c = 0; c < 3; ++c) {
        pixel[x][c] = cv::saturate_cast<uchar>(pixel[x][c] * (1.0f - a) + 250.0f * a);
      }
    }
  }
  drawWrapped(s, [&](int offset) {
    cv::circle(scene, at(s, 300.0, 38.0) + cv::Point(offset, 0),
               std::max(1, static_cast<int>(s.x(3.0))), cv::Scalar(200, 250, 255), cv::FILLED,
               cv::LINE_AA);
  });
}

void paintPaving(cv::Mat& scene, const SceneScale& s) {
  const cv::Scalar joint(40, 70, 70);
  for (int latitude = -5; latitude >= -85; latitude -= 5) {
    const int y = at(s, 0.0, latitude).y;
    cv::line(scene, cv::Point(0, y), cv::Point(scene.cols - 1, y), joint, s.thickness());
  }
  for (int longitude = 0; longitude < 360; longitude += 5) {
    const int x = at(s, longitude, 0.0).x;
    cv::line(scene, cv::Point(x, at(s, 0.0, -2.0).y), cv::Point(x, scene.rows - 1), joint,
             s.thickness());
  }
}

void paintBuilding(cv::Mat& scene, const SceneScale& s, cv::RNG& rng, double left, double width,
                   double height) {
  static const cv::Scalar kFacades[] = {{60, 90, 170},  {150, 150, 150}, {90, 160, 210},
                                        {170, 120, 70}, {80, 80, 130},   {120, 180, 180},
                                        {60, 60, 60},   {190, 200, 215}};
  const cv::Scalar facade = kFacades[rng.uniform(0, 8)];
  const cv::Scalar glass = rng.uniform(0, 2) ? cv::Scalar(120, 90, 40) : cv::Scalar(90, 200, 230);
  const double base = -3.0;
  const double windowWidth = width / (2 * rng.uniform(3, 7) + 1);
  const double floorHeight = rng.uniform(2.0, 3.5);
  drawWrapped(s, [&](int offset) {
    const cv::Point shift(offset, 0);
    const cv::Point topLeft = at(s, left, height) + shift;
    const cv::Point bottomRight = at(s, left + width, base) + shift;
    cv::rectangle(scene, topLeft, bottomRight, facade, cv::FILLED);
    for (double floor = base + floorHeight; floor + 0.5 * floorHeight < height;
         floor += floorHeight) {
      for (double x = left + windowWidth; x + windowWidth <= left + width; x += 2 * windowWidth) {
        cv::rectangle(scene, at(s, x, floor + 0.6 * floorHeight) + shift,
                      at(s, x + windowWidth, floor + 0.1 * floorHeight) + shift, glass, cv::FILLED);
      }
    }
    cv::rectangle(scene, topLeft, bottomRight, kOutline, s.thickness());
  });
}

void paintBuildings(cv::Mat& scene, const SceneScale& s, cv::RNG& rng) {
  double longitude = rng.uniform(0.0, 6.0);
  while (longitude < 350.0) {
    const double width = std::min(rng.uniform(8.0, 24.0), 358.0 - longitude);
    if (width > 4.0) paintBuilding(scene, s, rng, longitude, width, rng.uniform(6.0, 30.0));
    longitude += width + rng.uniform(1.0, 9.0);
  }
}

void paintMarkers(cv::Mat& scene, const SceneScale& s) {
  const int arm = std::max(2, static_cast<int>(s.x(1.2)));
  for (int latitude = -75; latitude <= 75; latitude += 15) {
    for (int longitude = 0; longitude < 360; longitude += 15) {
      drawWrapped(s, [&](int offset) {
        const cv::Point centre = at(s, longitude, latitude) + cv::Point(offset, 0);
        cv::line(scene, centre - cv::Point(arm, 0), centre + cv::Point(arm, 0), kMarker,
                 s.thickness());
        cv::line(scene, centre - cv::Point(0, arm), centre + cv::Point(0, arm), kMarker,
                 s.thickness());
      });
    }
  }
  const double fontScale = s.height() / 900.0;
  for (int longitude = 0; longitude < 360; longitude += 30) {
    const std::string label = std::to_string(longitude);
    for (double latitude : {40.0, -20.0}) {
      drawWrapped(s, [&](int offset) {
        const cv::Point corner = at(s, longitude + 1.5, latitude) + cv::Point(offset, 0);
        cv::putText(scene, label, corner, cv::FONT_HERSHEY_SIMPLEX, fontScale,
                    cv::Scalar(20, 20, 20), s.thickness() + 1, cv::LINE_AA);
        cv::putText(scene, label, corner, cv::FONT_HERSHEY_SIMPLEX, fontScale,
                    cv::Scalar(255, 255, 255), s.thickness(), cv::LINE_AA);
      });
    }
  }
}

void addGrain(cv::Mat& scene) {
  cv::Mat grain(scene.size(), CV_16SC3);
  cv::RNG rng(kGrainSeed);
  rng.fill(grain, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(7));
  cv::Mat grained;
  cv::add(scene, grain, grained, cv::noArray(), CV_8UC3);
  scene = grained;
}

}  // namespace

cv::Mat makeBuiltinScene(int width, int height) {
  if (width < 16 || height < 8) {
    throw Failure("The built-in scene needs at least 16x8 pixels, not " + std::to_string(width) +
                  "x" + std::to_string(height) + ".");
  }
  const SceneScale s(width, height);
  cv::RNG layout(kLayoutSeed);
  cv::Mat scene(height, width, CV_8UC3);
  paintSkyAndGround(scene);
  paintClouds(scene, s, layout);
  paintPaving(scene, s);
  paintBuildings(scene, s, layout);
  paintMarkers(scene, s);
  addGrain(scene);
  return scene;
}

}  // namespace velmora::sim
