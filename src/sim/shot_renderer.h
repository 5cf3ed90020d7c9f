// Renders the shots of a simulated camera from an equirectangular scene: the light each shot
// pixel receives, before exposure and noise (shot_exposure.h).
#pragma once

#include <opencv2/core.hpp>

#include "sim/equirect_scene.h"
#include "sim/simulated_camera.h"

namespace velmora::sim {

// Where the camera stands relative to the scene. By default the camera's nodal point lies on the
// head's rotation axis and the scene is infinitely far away, so neighbouring shots agree exactly.
struct Parallax {
  // Distance of the nodal point from the rotation axis, in front of it along the head's heading.
  double nodalOffset = 0.0;
  // Radius of the scene sphere, centred on the rotation axis at the nodal point's height; 0 means
  // infinitely far. Must exceed nodalOffset when both are set.
  double sceneRadius = 0.0;

  bool none() const { return nodalOffset == 0.0 || sceneRadius == 0.0; }
};

// The light of the shot at head position (0 to 5): CV_32FC3, B, G, R in 0 to 255, in the stored
// orientation (width x height as the host passes the shot; the Up camera's model frame is turned
// back clockwise so that the library's counter-clockwise turn restores it). Pixels more than 70
// degrees off the optical axis are black. Throws Failure for a position outside 0 to 5 or an
// invalid parallax.
cv::Mat renderShotLight(const EquirectScene& scene, const SimulatedCamera& camera, int position,
                        const Parallax& parallax = Parallax());

// The world direction (seen from the rotation axis) of the scene point that the ray from the
// camera's nodal point at head position along worldDirection meets.
cv::Vec3d scenePointDirection(const cv::Vec3d& worldDirection, int position,
                              const Parallax& parallax);

}  // namespace velmora::sim
