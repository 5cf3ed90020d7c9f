#include "api/camera_choice.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace velmora {
namespace {

TEST(CameraChoice, LastComponentStartingWithUpDotIsTheUpperCamera) {
  EXPECT_EQ(cameraFromConfigPath("/rig/config/Up.txt"), Camera::Up);
  EXPECT_EQ(cameraFromConfigPath("./Up."), Camera::Up);
  // Only the last component counts.
  EXPECT_EQ(cameraFromConfigPath("/Down/Up.cfg"), Camera::Up);
}

TEST(CameraChoice, LastComponentStartingWithCapitalDIsTheLowerCamera) {
  EXPECT_EQ(cameraFromConfigPath("/rig/Down.txt"), Camera::Down);
  EXPECT_EQ(cameraFromConfigPath("/rig/D"), Camera::Down);
  EXPECT_EQ(cameraFromConfigPath("/Up./Dx.ini"), Camera::Down);
}

TEST(CameraChoice, OtherNamesChooseNoCamera) {
  EXPECT_EQ(cameraFromConfigPath("/rig/up.txt"), std::nullopt);
  EXPECT_EQ(cameraFromConfigPath("/rig/Up"), std::nullopt);
  EXPECT_EQ(cameraFromConfigPath("/rig/Upper.txt"), std::nullopt);
  EXPECT_EQ(cameraFromConfigPath("/rig/down.txt"), std::nullopt);
}

TEST(CameraChoice, PathWithoutFileNameIsMalformed) {
  EXPECT_THROW(cameraFromConfigPath("Up.txt"), std::invalid_argument);
  EXPECT_THROW(cameraFromConfigPath("/rig/"), std::invalid_argument);
  EXPECT_THROW(cameraFromConfigPath(""), std::invalid_argument);
}

}  // namespace
}  // namespace velmora
