// The stitch handle through the public interface: Init's transcript, status codes and table cache,
// and the single-exposure stitch. Bad files, folders and pointers are in bad_input_test.cpp.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "api/camera_choice.h"
#include "common/console.h"
#include "support/simulated_bracket.h"

namespace velmora::testing {
namespace {

namespace fs = std::filesystem;
using console::kSeparator;

TEST(CameraChoice, TheLastPathComponentNamesTheCamera) {
  const struct {
    const char* path;
    std::optional<Camera> camera;
  } cases[] = {{"/rig/config/Up.txt", Camera::Up}, {"./Up.", Camera::Up},
               {"/Down/Up.cfg", Camera::Up},       {"/rig/Down.txt", Camera::Down},
               {"/rig/D", Camera::Down},           {"/Up./Dx.ini", Camera::Down},
               {"/rig/up.txt", std::nullopt},      {"/rig/Up", std::nullopt},
               {"/rig/Upper.txt", std::nullopt},   {"/rig/down.txt", std::nullopt}};
  for (const auto& c : cases) EXPECT_EQ(cameraFromConfigPath(c.path), c.camera) << c.path;
  for (const char* malformed : {"Up.txt", "/rig/", ""})
    EXPECT_THROW(cameraFromConfigPath(malformed), std::invalid_argument) << malformed;
}

TEST(Console, DurationsAreWholeMillisecondsInSeconds) {
  CapturedConsole captured;
  console::out("ISP spend time : ", console::Stopwatch::secondsFromMilliseconds(1234));
  console::out("x", console::Stopwatch::secondsFromMilliseconds(2000));
  EXPECT_EQ(captured.out(), "ISP spend time : 1.234\nx2\n");
}

class StitchHandle : public SimulatedBracket {
 protected:
  void init(const std::string& config, int gridWidth = kGridWidth, int gridHeight = kGridHeight) {
    SimulatedBracket::init(config, work_.path().string(), gridWidth, gridHeight);
  }
  std::string copyOfTheConfiguration(const std::string& name) const {
    writeTextFile(file(name), readFile(files_.configPath));
    return file(name);
  }
};

TEST_F(StitchHandle, InitPrintsItsTranscriptBuildsTablesOfItsGridsSizeOrTrustsACachedOne) {
  // Down has no configuration, but a cached table of the right size.
  const std::string marker(8 * 48 * 24, '\x11');
  writeTextFile(file("table_Down.bin"), marker);
  CapturedConsole console;
  init(files_.configPath);
  init(file("Down.txt"), 48, 24);
  EXPECT_EQ(console.outLines(), (Lines{"==================version-1.0.34==================",
                                       "Init UpCam done.", kSeparator,  // no banner for Down
                                       "Init DownCam done.", kSeparator}));
  EXPECT_EQ(console.err(), "");
  EXPECT_EQ(code(), 0u);
  EXPECT_EQ(fs::file_size(file("table_Up.bin")), 8u * kGridWidth * kGridHeight);
  EXPECT_EQ(readFile(file("table_Down.bin")), marker);
}

TEST_F(StitchHandle, InitRefusalsPrintOneLineAndALaterSuccessKeepsTheFailureCode) {
  const std::string lower = copyOfTheConfiguration("up.txt");
  const struct {
    std::string config;
    int gridWidth;
    std::string error;
  } cases[] = {{lower, kGridWidth, "Configure path:" + lower + " error."},
               {"Up.txt", kGridWidth, "unknow error."},
               {files_.configPath, 0, "Invalid panorama grid 0x200."}};
  for (const auto& c : cases) {
    ZEMU_DestroyOptFlowStitchHandle(handle_);
    handle_ = ZEMU_CreateOptFlowStitchHandle();
    CapturedConsole console;
    init(c.config, c.gridWidth);
    EXPECT_EQ(code(), kFailed) << c.error;
    EXPECT_EQ(console.errLines(), Lines{c.error});
    EXPECT_EQ(console.out().find("Init UpCam done."), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(file("table_Up.bin")));
  CapturedConsole console;
  init(files_.configPath);
  EXPECT_EQ(code(), kFailed);
}

TEST_F(StitchHandle, StitchWritesTheFramedPanoramaAtTheGridSizeWithItsTranscript) {
  {
    CapturedConsole quiet;
    init(files_.configPath);
  }
  fs::remove(file("table_Up.bin"));  // rebuilt when the cache is gone
  CapturedConsole console;
  stitch(singles_, file("pano.png"));
  EXPECT_EQ(code(), 0u) << console.err();
  EXPECT_EQ(console.outLines(), (Lines{"Optical Flow Stitch start.", "Stitch up cameras.",
                                       "Optical flow stitch finished.", kSeparator}));
  EXPECT_TRUE(fs::exists(file("table_Up.bin")));
  // (The framing and content are the quality test's.)
  EXPECT_EQ(cv::imread(file("pano.png")).size(), cv::Size(kGridWidth, kGridHeight));
}

TEST_F(StitchHandle, StitchRefusalsPrintOneLineAndWriteNothing) {
  CapturedConsole console;
  stitch(singles_, file("pano.png"));  // before any Init
  init(files_.configPath);
  stitch(singles_, file("pano.png"), copyOfTheConfiguration("up.txt"));
  stitch(singles_, file("pano.unknown"));
  stitch(singles_, file("pano.png"), copyOfTheConfiguration("Down.txt"));
  EXPECT_EQ(code(), kFailed);
  EXPECT_EQ(console.errLines(),
            (Lines{"Camera not initialised: call ZEMU_InitOptFlowStitchHandle with the Up "
                   "configuration first.",
                   "Configure path:" + file("up.txt") + " error.",
                   "Write image: " + file("pano.unknown") + " error.",
                   "Camera not initialised: call ZEMU_InitOptFlowStitchHandle with the Down "
                   "configuration first."}));
  EXPECT_FALSE(fs::exists(file("pano.png")) || fs::exists(file("pano.unknown")));
}

}  // namespace
}  // namespace velmora::testing
