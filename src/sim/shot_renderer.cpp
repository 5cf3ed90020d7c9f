#include "sim/shot_renderer.h"

#include <cmath>
#include <string>

#include "common/status.h"
#include "rig/lens.h"
#include "sim/parallel_rows.h"

namespace velmora::sim {

namespace {

void checkRequest(int position, const Parallax& parallax) {
  if (position < 0 || position >= kHeadPositions) {
    throw Failure("Head position " + std::to_string(position) + " is outside 0 to 5.");
  }
  if (!(parallax.nodalOffset >= 0.0) || !(parallax.sceneRadius >= 0.0)) {
    throw Failure("The parallax distances must not be negative.");
  }
  if (!parallax.none() && parallax.sceneRadius <= parallax.nodalOffset) {
    throw Failure("The scene sphere must be larger than the nodal point's offset.");
  }
}

}  // namespace

cv::Vec3d scenePointDirection(const cv::Vec3d& worldDirection, int position,
                              const Parallax& parallax) {
  if (parallax.none()) return worldDirection;
  const double heading = headAngle(position);
  const cv::Vec3d nodal =
      parallax.nodalOffset * cv::Vec3d(std::sin(heading), 0.0, std::cos(heading));
  const cv::Vec3d d = worldDirection / std::sqrt(worldDirection.dot(worldDirection));
  // |nodal + t d| = R with t > 0; the nodal point is inside the sphere, so one root is positive.
  const double b = nodal.dot(d);
  const double c = nodal.dot(nodal) - parallax.sceneRadius * parallax.sceneRadius;
  const double t = -b + std::sqrt(b * b - c);
  return nodal + t * d;
}

cv::Mat renderShotLight(const EquirectScene& scene, const SimulatedCamera& camera, int position,
                        const Parallax& parallax) {
  checkRequest(position, parallax);
  const CameraGeometry& geometry = camera.geometry();
  const int columns = static_cast<int>(geometry.size1);
  const int rows = static_cast<int>(geometry.size2);
  const double heading = headAngle(position);
  cv::Mat light(rows, columns, CV_32FC3);
  forEachRow(rows, [&](int v) {
    cv::Vec3f* out = light.ptr<cv::Vec3f>(v);
    for (int u = 0; u < columns; ++u) {
      cv::Vec3d direction;
      if (!camera.directionOfPixel(u, v, direction)) {
        out[u] = cv::Vec3f(0.0f, 0.0f, 0.0f);
        continue;
      }
      const cv::Vec3d world = turnAboutVertical(direction, heading);
      out[u] = scene.sample(scenePointDirection(world, position, parallax));
    }
  });
  if (geometry.lensSelector == kUpLens) {
    cv::Mat stored;
    cv::rotate(light, stored, cv::ROTATE_90_CLOCKWISE);
    return stored;
  }
  return light;
}

}  // namespace velmora::sim
