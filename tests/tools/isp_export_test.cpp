// The colour step through the public interface, with a stand-in colour script that records how
// it was called and hands its input back as its result.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <vector>

#include "api/console.h"
#include "api/stitch_handle.h"
#include "support/test_support.h"
#include "tools/scoped_process_state.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::readFile;
using testing::ScopedWorkingDirectory;
using testing::TempDir;
using testing::writeScript;
using testing::writeTextFile;

constexpr int kPanoramaWidth = 64;
constexpr int kPanoramaHeight = 32;
// int(32 x 0.12) rows above and below.
constexpr int kBandRows = 3;

// Records its arguments, the profile it finds and whether its input exists, then copies the
// input to the output.
constexpr char kRecordingScript[] =
    "{ echo \"args: $*\"; echo \"profile: $(cat ./asset/$1)\";\n"
    "  if [ -e \"$3\" ]; then echo 'input: present'; else echo 'input: missing'; fi; } >> isp.log\n"
    "cp \"$3\" \"$2\"\n";

class IspExport : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(work_.file("asset"));
    writeTextFile(work_.file("asset/satuHigh.pp3"), "high profile\n");
    writeTextFile(work_.file("asset/satuLow.pp3"), "low profile\n");
    writeScript(work_.file("isp.bat"), kRecordingScript);

    handle_ = ZEMU_CreateOptFlowStitchHandle();
    ASSERT_NE(handle_, nullptr);
    writeTextFile(work_.file("Up.txt"), testing::cameraConfigText(300.0, 200.0, 150.0));
    {
      CapturedConsole quiet;
      ZEMU_InitOptFlowStitchHandle(handle_, work_.file("Up.txt").c_str(),
                                   work_.path().string().c_str(), 400, 300, kPanoramaWidth,
                                   kPanoramaHeight);
    }
    state().code = -1;
  }

  void TearDown() override { ZEMU_DestroyOptFlowStitchHandle(handle_); }

  StitchHandle& state() { return *static_cast<StitchHandle*>(handle_); }

  // Writes an intermediate image as the HDR stitch would and records it as pending.
  void addPending(const std::string& finalPath, const cv::Mat& intermediate) {
    const std::string intermediatePath = finalPath + ".jpg";
    ASSERT_TRUE(cv::imwrite(work_.file(intermediatePath), intermediate));
    state().pendingIsp[finalPath] = intermediatePath;
  }

  static cv::Mat uniform(uchar blue, uchar green, uchar red, int cols = kPanoramaWidth) {
    return cv::Mat(20, cols, CV_8UC3, cv::Scalar(blue, green, red));
  }

  int32_t code() const { return static_cast<int32_t>(ZEMU_GetOptFlowStitchCode(handle_)); }
  std::string log() const { return readFile(work_.file("isp.log")); }

  TempDir work_;
  ScopedWorkingDirectory inside_{work_.path()};
  void* handle_ = nullptr;
};

TEST_F(IspExport, GreyPanoramaRunsTheScriptWithTheLowProfile) {
  addPending("pano.jpg", uniform(128, 128, 128));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");

  EXPECT_EQ(code(), 0);
  EXPECT_EQ(log(),
            "args: isp_minion.pp3 pano.jpg pano.jpg.jpg\n"
            "profile: low profile\n"
            "input: present\n");
  EXPECT_EQ(readFile(work_.file("asset/isp_minion.pp3")), "low profile\n");
  EXPECT_FALSE(std::filesystem::exists(work_.file("pano.jpg.jpg")));

  const std::vector<std::string> lines = console.outLines();
  ASSERT_EQ(lines.size(), 6u) << console.out();
  EXPECT_EQ(lines[0], "ISP process start.");
  EXPECT_EQ(lines[1], "satu = 0");
  EXPECT_EQ(lines[2], console::kIspSection);
  EXPECT_EQ(lines[3].rfind("ISP spend time : ", 0), 0u) << lines[3];
  EXPECT_EQ(lines[4], "ISP process finished.");
  EXPECT_EQ(lines[5], console::kSeparator);
  EXPECT_EQ(console.err(), "");
}

TEST_F(IspExport, PureRedTakesTheHighProfileAndAllBlackTheLowOne) {
  addPending("red.jpg", uniform(0, 0, 255));
  addPending("black.jpg", uniform(0, 0, 0));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "red.jpg");
  ZEMU_ExecuteISPHandle(handle_, "black.jpg");

  EXPECT_EQ(code(), 0) << console.err();
  EXPECT_EQ(log(),
            "args: isp_minion.pp3 red.jpg red.jpg.jpg\n"
            "profile: high profile\n"
            "input: present\n"
            "args: isp_minion.pp3 black.jpg black.jpg.jpg\n"
            "profile: low profile\n"
            "input: present\n");
  const std::vector<std::string> lines = console.outLines();
  ASSERT_EQ(lines.size(), 12u) << console.out();
  // JPEG may leave pure red a little short of pure; black measures 0/0.
  ASSERT_EQ(lines[1].rfind("satu = ", 0), 0u) << lines[1];
  EXPECT_GT(std::stof(lines[1].substr(7)), 0.99f);
  EXPECT_NE(lines[7].find("nan"), std::string::npos) << lines[7];
}

TEST_F(IspExport, ResultGetsTheBlackBandsAndJpegQuality85) {
  cv::Mat intermediate = uniform(40, 90, 160);
  intermediate.colRange(0, 10).setTo(cv::Scalar(250, 250, 250));
  std::filesystem::create_directory(work_.file("out"));
  addPending("out/final.jpg", intermediate);
  // What the stand-in will hand back: the intermediate as it lies on disk.
  const cv::Mat scriptResult = cv::imread(work_.file("out/final.jpg.jpg"));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "out/final.jpg");

  ASSERT_EQ(code(), 0) << console.err();
  EXPECT_NE(log().find("args: isp_minion.pp3 out/final.jpg out/final.jpg.jpg\n"),
            std::string::npos);
  const cv::Mat written = cv::imread(work_.file("out/final.jpg"));
  ASSERT_EQ(written.cols, kPanoramaWidth);
  ASSERT_EQ(written.rows, scriptResult.rows + 2 * kBandRows);
  // Written back under the final name as JPEG of quality 85.
  cv::Mat framed = cv::Mat::zeros(written.rows, written.cols, CV_8UC3);
  scriptResult.copyTo(framed.rowRange(kBandRows, kBandRows + scriptResult.rows));
  std::vector<uchar> expected;
  ASSERT_TRUE(cv::imencode(".jpg", framed, expected, {cv::IMWRITE_JPEG_QUALITY, 85}));
  EXPECT_TRUE(readFile(work_.file("out/final.jpg")) ==
              std::string(expected.begin(), expected.end()));
}

TEST_F(IspExport, UnknownNameRunsNothingAndStillCompletes) {
  addPending("pano.jpg", uniform(128, 128, 128));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "PANO.jpg");
  ZEMU_ExecuteISPHandle(handle_, "pano");

  EXPECT_EQ(code(), 0);
  EXPECT_FALSE(std::filesystem::exists(work_.file("isp.log")));
  EXPECT_TRUE(std::filesystem::exists(work_.file("pano.jpg.jpg")));
  const std::vector<std::string> lines = console.outLines();
  ASSERT_EQ(lines.size(), 8u) << console.out();
  EXPECT_EQ(lines[0], "ISP process start.");
  EXPECT_EQ(lines[1], "PANO.jpg not found.");
  EXPECT_EQ(lines[2], "ISP process finished.");
  EXPECT_EQ(lines[3], console::kSeparator);
  EXPECT_EQ(lines[5], "pano not found.");
}

TEST_F(IspExport, MissingProfilesOnlyPrintTheCopyErrorAndTheScriptStillRuns) {
  std::filesystem::remove(work_.file("asset/satuLow.pp3"));
  writeTextFile(work_.file("asset/isp_minion.pp3"), "profile in place\n");
  addPending("pano.jpg", uniform(128, 128, 128));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");

  EXPECT_EQ(code(), 0);
  EXPECT_NE(console.out().find("Error 1: Fail to open the source file.\n"), std::string::npos);
  EXPECT_NE(log().find("profile: profile in place\n"), std::string::npos) << log();
}

TEST_F(IspExport, ScriptThatLeavesNoResultIsADetectedFailure) {
  writeScript(work_.file("isp.bat"), "exit 1\n");
  addPending("pano.jpg", uniform(128, 128, 128));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");

  EXPECT_EQ(code(), -1);
  ASSERT_EQ(console.errLines().size(), 1u) << console.err();
  EXPECT_NE(console.err().find("pano.jpg"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(work_.file("pano.jpg.jpg")));
  EXPECT_FALSE(std::filesystem::exists(work_.file("pano.jpg")));
}

TEST_F(IspExport, ResultOfTheWrongWidthIsADetectedFailure) {
  addPending("pano.jpg", uniform(128, 128, 128, kPanoramaWidth - 8));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");

  EXPECT_EQ(code(), -1);
  ASSERT_EQ(console.errLines().size(), 1u) << console.err();
  EXPECT_NE(console.err().find("56 columns"), std::string::npos) << console.err();
}

TEST_F(IspExport, AskingTwiceFindsTheIntermediateGone) {
  addPending("pano.jpg", uniform(128, 128, 128));
  CapturedConsole console;

  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");
  ASSERT_EQ(code(), 0);
  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");

  // The entry stays pending, but its intermediate image no longer exists.
  EXPECT_EQ(code(), -1);
  EXPECT_EQ(state().pendingIsp.count("pano.jpg"), 1u);
  EXPECT_NE(console.err().find("pano.jpg.jpg"), std::string::npos) << console.err();
}

TEST_F(IspExport, NullNameOrHandleDoesNotCrash) {
  CapturedConsole console;
  ZEMU_ExecuteISPHandle(handle_, nullptr);
  EXPECT_EQ(code(), -1);
  ZEMU_ExecuteISPHandle(nullptr, "pano.jpg");
  EXPECT_EQ(console.errLines().size(), 2u) << console.err();
}

}  // namespace
}  // namespace velmora
