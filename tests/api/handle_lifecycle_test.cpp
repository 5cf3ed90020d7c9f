// The stitch and video handles through the public interface: Init's transcript and status codes,
// the table cache it leaves behind, and what a null or malformed argument does.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "api/console.h"
#include "api/video_stitch_handle.h"
#include "support/test_support.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::TempDir;

constexpr unsigned kFailed = 0xFFFFFFFFu;

class StitchHandleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    handle_ = ZEMU_CreateOptFlowStitchHandle();
    ASSERT_NE(handle_, nullptr);
    testing::writeTextFile(upConfig(), testing::cameraConfigText(60.0, 50.0, 40.0));
    testing::writeTextFile(downConfig(), testing::cameraConfigText(60.0, 50.0, 40.0, 0.1f));
  }
  void TearDown() override { ZEMU_DestroyOptFlowStitchHandle(handle_); }

  std::string upConfig() const { return dir_.file("Up.txt"); }
  std::string downConfig() const { return dir_.file("Down.txt"); }
  std::string tableDir() const { return dir_.path().string(); }

  void init(const std::string& config, int outWidth = 64, int outHeight = 32) {
    ZEMU_InitOptFlowStitchHandle(handle_, config.c_str(), tableDir().c_str(), 100, 80, outWidth,
                                 outHeight);
  }

  TempDir dir_;
  void* handle_ = nullptr;
};

TEST_F(StitchHandleTest, UpInitPrintsBannerDoneAndSeparatorInOrder) {
  CapturedConsole console;
  init(upConfig());
  EXPECT_EQ(console.outLines(),
            (std::vector<std::string>{"==================version-1.0.34==================",
                                      "Init UpCam done.", "---------------------------------"}));
  EXPECT_EQ(console.err(), "");
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), 0u);
}

TEST_F(StitchHandleTest, DownInitPrintsNoBanner) {
  CapturedConsole console;
  init(downConfig());
  EXPECT_EQ(console.outLines(),
            (std::vector<std::string>{"Init DownCam done.", "---------------------------------"}));
}

TEST_F(StitchHandleTest, UnrecognisedConfigPathFailsOnStandardError) {
  const std::string lower = dir_.file("up.txt");
  testing::writeTextFile(lower, testing::cameraConfigText(60.0, 50.0, 40.0));
  CapturedConsole console;
  init(lower);
  EXPECT_EQ(console.errLines(), (std::vector<std::string>{"Configure path:" + lower + " error."}));
  EXPECT_EQ(console.out(), "");
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
  EXPECT_FALSE(std::filesystem::exists(dir_.file("table_Up.bin")));
}

TEST_F(StitchHandleTest, SuccessfulInitLeavesAnEarlierFailureCodeInPlace) {
  CapturedConsole console;
  init(dir_.file("Upper.txt"));
  ASSERT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
  init(upConfig());
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
}

TEST_F(StitchHandleTest, PathWithoutDirectoryIsAnUnknownError) {
  CapturedConsole console;
  ZEMU_InitOptFlowStitchHandle(handle_, "Up.txt", tableDir().c_str(), 100, 80, 64, 32);
  EXPECT_EQ(console.errLines(), (std::vector<std::string>{"unknow error."}));
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
}

TEST_F(StitchHandleTest, InitWritesOneTablePerCameraOfTheGridsSize) {
  CapturedConsole console;
  init(upConfig(), 64, 32);
  init(downConfig(), 48, 24);
  EXPECT_EQ(std::filesystem::file_size(dir_.file("table_Up.bin")), 8u * 64 * 32);
  EXPECT_EQ(std::filesystem::file_size(dir_.file("table_Down.bin")), 8u * 48 * 24);
}

TEST_F(StitchHandleTest, InitTrustsAnExistingTableOfTheRightSize) {
  const std::string table = dir_.file("table_Up.bin");
  const std::string marker(8 * 64 * 32, '\x11');
  testing::writeTextFile(table, marker);
  CapturedConsole console;
  init(upConfig());
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), 0u);
  EXPECT_EQ(testing::readFile(table), marker);
}

TEST_F(StitchHandleTest, InitRebuildsATableThatIsTooShort) {
  const std::string table = dir_.file("table_Up.bin");
  testing::writeTextFile(table, std::string(100, '\x11'));
  CapturedConsole console;
  init(upConfig());
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), 0u);
  EXPECT_EQ(std::filesystem::file_size(table), 8u * 64 * 32);
  EXPECT_NE(testing::readFile(table).substr(0, 100), std::string(100, '\x11'));
}

TEST_F(StitchHandleTest, TableWithoutReadableConfigurationFailsAndLeavesNoFile) {
  std::filesystem::remove(upConfig());
  CapturedConsole console;
  init(upConfig());
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
  ASSERT_EQ(console.errLines().size(), 1u);
  EXPECT_NE(console.err().find("configuration"), std::string::npos);
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    EXPECT_EQ(entry.path().filename().string().find("table_Up"), std::string::npos);
  }
}

TEST_F(StitchHandleTest, MissingConfigurationIsUnnoticedWhenTheTableIsCached) {
  testing::writeTextFile(dir_.file("table_Up.bin"), std::string(8 * 64 * 32, '\0'));
  std::filesystem::remove(upConfig());
  CapturedConsole console;
  init(upConfig());
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), 0u);
}

TEST_F(StitchHandleTest, UnwritableTableDirectoryFailsWithOneLine) {
  CapturedConsole console;
  ZEMU_InitOptFlowStitchHandle(handle_, upConfig().c_str(), dir_.file("missing/dir").c_str(), 100,
                               80, 64, 32);
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
  EXPECT_EQ(console.errLines(),
            (std::vector<std::string>{"Write table: " + dir_.file("missing/dir") +
                                      "/table_Up.bin error."}));
}

TEST_F(StitchHandleTest, EmptyGridFailsCleanly) {
  CapturedConsole console;
  init(upConfig(), 0, 32);
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
  EXPECT_EQ(console.errLines().size(), 1u);
}

TEST_F(StitchHandleTest, NullArgumentsFailWithoutCrashing) {
  CapturedConsole console;
  ZEMU_InitOptFlowStitchHandle(handle_, nullptr, tableDir().c_str(), 100, 80, 64, 32);
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(handle_), kFailed);
  ZEMU_InitOptFlowStitchHandle(handle_, upConfig().c_str(), nullptr, 100, 80, 64, 32);
  EXPECT_EQ(console.errLines().size(), 2u);
}

TEST(NullHandle, IsHarmlessEverywhere) {
  CapturedConsole console;
  ZEMU_InitOptFlowStitchHandle(nullptr, "/a/Up.txt", "/tmp", 1, 1, 1, 1);
  ZEMU_InitVideoStitchHandle(nullptr, "/a/Up.txt", "/tmp", 1, 1, 1, 1);
  EXPECT_EQ(ZEMU_GetOptFlowStitchCode(nullptr), kFailed);
  EXPECT_EQ(ZEMU_GetVideoStitchCode(nullptr), kFailed);
  ZEMU_DestroyOptFlowStitchHandle(nullptr);
  ZEMU_DestroyVideoStitchHandle(nullptr);
  EXPECT_EQ(console.errLines().size(), 2u);
}

TEST(VideoHandle, InitStoresGridThenSwappedShotSizeAndNeverWritesTheCode) {
  void* handle = ZEMU_CreateVideoStitchHandle();
  ASSERT_NE(handle, nullptr);
  ZEMU_InitVideoStitchHandle(handle, "/rig/Up.txt", "/tables", 5472, 3648, 8192, 4096);
  const auto& state = *static_cast<VideoStitchHandle*>(handle);
  EXPECT_EQ(state.panoramaWidth, 8192);
  EXPECT_EQ(state.panoramaHeight, 4096);
  EXPECT_EQ(state.firstParameter, 3648);
  EXPECT_EQ(state.secondParameter, 5472);
  EXPECT_EQ(state.modelConfigPath, "/rig/Up.txt");
  EXPECT_EQ(state.tableDir, "/tables");
  EXPECT_EQ(ZEMU_GetVideoStitchCode(handle), 0u);
  ZEMU_DestroyVideoStitchHandle(handle);
}

TEST(Console, DurationsAreWholeMillisecondsInSeconds) {
  EXPECT_EQ(console::Stopwatch::secondsFromMilliseconds(1234), 1.234);
  CapturedConsole captured;
  console::out("ISP spend time : ", console::Stopwatch::secondsFromMilliseconds(1234));
  console::out("x", console::Stopwatch::secondsFromMilliseconds(2000));
  EXPECT_EQ(captured.out(), "ISP spend time : 1.234\nx2\n");
}

}  // namespace
}  // namespace velmora
