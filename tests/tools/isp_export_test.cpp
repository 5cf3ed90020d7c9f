// The colour step: the profile a saturation measure chooses, then the step through the public
// interface, with a stand-in colour script that records how it was called and hands its
// input back as its result, and with the shipped one.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "api/stitch_handle.h"
#include "common/console.h"
#include "common/saturation.h"
#include "support/scoped_process_state.h"
#include "support/test_support.h"
#include "tools/file_copy.h"
#include "tools/isp_script.h"
#include "tools/process_runner.h"
#include "velmora.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::Lines;
using testing::readFile;
using testing::writeTextFile;

constexpr int kPanoramaWidth = 64;
constexpr int kBandRows = 3;  // int(32 x 0.12)

TEST(Saturation, OnlyAMeasureAboveOneHalfTakesTheHighProfile) {
  for (float low : {0.0f, 0.5f, std::nanf("")})
    EXPECT_STREQ(ispProfileFor(low), "./asset/satuLow.pp3");
  for (float high : {std::nextafter(0.5f, 1.0f), 1.0f})
    EXPECT_STREQ(ispProfileFor(high), "./asset/satuHigh.pp3");
}

TEST(FileCopy, SaysWhenTheCopyCannotBeCreated) {
  // (A copied profile and a missing one are the colour step's export test.)
  testing::TempDir dir;
  testing::writeTextFile(dir.file("profile"), "profile\n");
  testing::CapturedConsole console;
  EXPECT_EQ(copyFile(dir.file("profile"), dir.file("no-such-folder/new")), 0);
  EXPECT_EQ(console.out(), "Error 2: Fail to create the new file.\n");
}

// The stand-in colour step (support/scoped_process_state.h) and a handle whose Init gave a 64 x 32
// grid, its code left at -1: the colour step sets its own.
class IspExport : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::writeStandInColourStep(work_.path());
    writeTextFile(work_.file("Up.txt"), testing::cameraConfigText(300.0, 200.0, 150.0));
    CapturedConsole quiet;
    ZEMU_InitOptFlowStitchHandle(handle_, work_.file("Up.txt").c_str(), work_.path().c_str(), 400,
                                 300, kPanoramaWidth, 32);
    state().code = -1;
  }
  void TearDown() override { ZEMU_DestroyOptFlowStitchHandle(handle_); }

  StitchHandle& state() { return *static_cast<StitchHandle*>(handle_); }

  // Writes an intermediate image as the HDR stitch would and records it as pending.
  void addPending(const std::string& finalPath, cv::Scalar bgr = cv::Scalar::all(128),
                  int cols = kPanoramaWidth) {
    ASSERT_TRUE(cv::imwrite(work_.file(finalPath + ".jpg"), cv::Mat(20, cols, CV_8UC3, bgr)));
    state().pendingIsp[finalPath] = finalPath + ".jpg";
  }
  int32_t code() const { return static_cast<int32_t>(ZEMU_GetOptFlowStitchCode(handle_)); }
  std::string read(const std::string& name) const { return readFile(work_.file(name)); }
  bool exists(const std::string& name) const { return std::filesystem::exists(work_.file(name)); }

  testing::TempDir work_;
  testing::ScopedWorkingDirectory inside_{work_.path()};
  void* handle_ = ZEMU_CreateOptFlowStitchHandle();
};

TEST_F(IspExport, SaturationChoosesTheProfileAndTheResultIsFramedAsJpeg85) {
  std::filesystem::create_directory(work_.file("out"));
  addPending("out/grey.jpg");
  addPending("red.jpg", {0, 0, 255});
  // What the stand-in hands back: the intermediate as it lies on disk.
  const cv::Mat scriptResult = cv::imread(work_.file("out/grey.jpg.jpg"));
  CapturedConsole console;
  for (const auto& [name, profile] : {std::pair{"out/grey.jpg", "low\n"}, {"red.jpg", "high\n"}}) {
    ZEMU_ExecuteISPHandle(handle_, name);
    EXPECT_FALSE(exists(name + std::string(".jpg")));
    EXPECT_EQ(read("asset/isp_minion.pp3"), profile) << name;
  }
  EXPECT_EQ(code(), 0);
  EXPECT_EQ(console.err(), "");
  EXPECT_EQ(read("isp.log"),
            "isp_minion.pp3 out/grey.jpg out/grey.jpg.jpg\nisp_minion.pp3 red.jpg red.jpg.jpg\n");
  Lines lines = console.outLines();
  ASSERT_EQ(lines.size(), 12u) << console.out();
  EXPECT_EQ(lines[3].rfind("ISP spend time : ", 0), 0u) << lines[3];
  lines[3] = "ISP spend time : ";
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 6),
            (Lines{"ISP process start.", "satu = 0", console::kIspSection,
                   "ISP spend time : ", "ISP process finished.", console::kSeparator}));
  // JPEG may leave pure red a little short of pure.
  ASSERT_EQ(lines[7].rfind("satu = ", 0), 0u) << lines[7];
  EXPECT_GT(std::stof(lines[7].substr(7)), 0.99f);

  cv::Mat framed = cv::Mat::zeros(scriptResult.rows + 2 * kBandRows, kPanoramaWidth, CV_8UC3);
  scriptResult.copyTo(framed.rowRange(kBandRows, kBandRows + scriptResult.rows));
  std::vector<uchar> expected;
  ASSERT_TRUE(cv::imencode(".jpg", framed, expected, {cv::IMWRITE_JPEG_QUALITY, 85}));
  EXPECT_TRUE(read("out/grey.jpg") == std::string(expected.begin(), expected.end()));
}

TEST_F(IspExport, UnknownNameRunsNothingAndMissingProfilesDoNotFail) {
  addPending("pano.jpg");
  CapturedConsole console;
  ZEMU_ExecuteISPHandle(handle_, "PANO.jpg");
  ZEMU_ExecuteISPHandle(handle_, "pano");
  EXPECT_EQ(code(), 0);
  EXPECT_FALSE(exists("isp.log"));
  EXPECT_TRUE(exists("pano.jpg.jpg"));
  EXPECT_EQ(console.outLines(),
            (Lines{"ISP process start.", "PANO.jpg not found.", "ISP process finished.",
                   console::kSeparator, "ISP process start.", "pano not found.",
                   "ISP process finished.", console::kSeparator}));

  // Missing profiles only print the copy error; the script runs with the profile in place.
  std::filesystem::remove(work_.file("asset/satuLow.pp3"));
  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");
  EXPECT_EQ(code(), 0);
  EXPECT_NE(console.out().find("Error 1: Fail to open the source file.\n"), std::string::npos);
  EXPECT_EQ(read("asset/isp_minion.pp3"), "in place\n");
  EXPECT_TRUE(exists("pano.jpg") && !exists("pano.jpg.jpg"));
}

TEST_F(IspExport, ScriptResultsItCannotFrameAreDetectedFailures) {
  const struct {
    const char* what;
    const char* script;  // replaces the recording stand-in when set
    int cols;
    bool twice;
    std::string error;
  } cases[] = {
      {"no result", "exit 1\n", kPanoramaWidth, false,
       "ISP: the script left no readable image at pano.jpg."},
      {"wrong width", nullptr, kPanoramaWidth - 8, false,
       "ISP: the script's result pano.jpg is 56 columns wide, the panorama 64."},
      // The entry stays pending, but its intermediate image no longer exists.
      {"asked twice", nullptr, kPanoramaWidth, true,
       "ISP: intermediate image pano.jpg.jpg cannot be read."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.script != nullptr) testing::writeScript(work_.file("isp.bat"), c.script);
    addPending("pano.jpg", cv::Scalar::all(128), c.cols);
    CapturedConsole console;
    ZEMU_ExecuteISPHandle(handle_, "pano.jpg");
    if (c.twice) ZEMU_ExecuteISPHandle(handle_, "pano.jpg");
    EXPECT_EQ(code(), -1);
    EXPECT_EQ(console.errLines(), Lines{c.error});
    EXPECT_FALSE(exists("pano.jpg.jpg"));
    EXPECT_EQ(state().pendingIsp.count("pano.jpg"), 1u);
    std::filesystem::remove(work_.file("pano.jpg"));
    testing::writeStandInColourStep(work_.path());
  }
}

// The shipped isp.bat and profiles over the stand-ins, as the README tells hosts to set up their
// working directory, with the real rawtherapee-cli.
TEST_F(IspExport, ShippedScriptColourProcessesAPendingPanoramaWithRawTherapee) {
  if (runCommand("command -v rawtherapee-cli > /dev/null") != 0)
    GTEST_SKIP() << "rawtherapee-cli is not installed";
  constexpr int kWidth = 256, kHeight = 128, kBands = 15;  // int(128 x 0.12)
  std::filesystem::copy(
      std::filesystem::path(VELMORA_SOURCE_DIR) / "share/isp", work_.path(),
      std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing);
  CapturedConsole console;
  ZEMU_InitOptFlowStitchHandle(handle_, work_.file("Up.txt").c_str(), work_.path().c_str(), 400,
                               300, kWidth, kHeight);
  // A pale panorama: a soft blue-grey sky over a dull brown ground.
  cv::Mat pale(kHeight, kWidth, CV_8UC3, cv::Scalar(180, 160, 150));
  pale.rowRange(kHeight / 2, kHeight).setTo(cv::Scalar(90, 105, 120));
  ASSERT_TRUE(cv::imwrite("pano.jpg.jpg", pale));
  state().pendingIsp["pano.jpg"] = "pano.jpg.jpg";
  const float before = measureSaturation(cv::imread("pano.jpg.jpg"));
  ASSERT_LE(before, 0.5f);
  ZEMU_ExecuteISPHandle(handle_, "pano.jpg");
  EXPECT_EQ(code(), 0) << console.err();
  EXPECT_FALSE(exists("pano.jpg.jpg"));
  EXPECT_EQ(read("asset/isp_minion.pp3"), read("asset/satuLow.pp3"));

  const cv::Mat result = cv::imread("pano.jpg");
  ASSERT_EQ(result.size(), cv::Size(kWidth, kHeight + 2 * kBands));
  const cv::Mat content = result.rowRange(kBands, kBands + kHeight);
  // The low-saturation profile lifts the colours of a pale panorama, and keeps its layout.
  EXPECT_GT(measureSaturation(content.clone()), before + 0.05f) << before;
  EXPECT_GT(cv::mean(content.rowRange(0, 40))[0], cv::mean(content.rowRange(88, 128))[0] + 40);
  // The first JPEG block row lies wholly in the top band.
  EXPECT_LT(cv::norm(result.rowRange(0, 8), cv::NORM_INF), 4.0);
}

}  // namespace
}  // namespace velmora
