// velmora hdr: fuses the upper camera's bracketed shots and stitches them into a panorama through
// the library's HDR stitch; optionally runs the colour step on the same handle (--isp), or the
// video variant (--video).
#include <iostream>
#include <stdexcept>

#include "velmora/bracket_shots.h"
#include "velmora/command.h"
#include "velmora/external_programs.h"
#include "velmora/tool_support.h"
#include "velmora/viewer_ready_option.h"

namespace velmora::tool {

namespace {

constexpr char kHdrFooter[] =
    R"(The shots: 12 or 18 files, position by position (p0e0 p0e1 [p0e2] p1e0 ...), or one
folder written by `velmora simulate --exposures 2,1,0.5` (its Up_<p>_<e> files; the
configurations default to the folder's Up.txt and Down.txt). The library's fusion reads
three exposures: a two-exposure set fails inside the fusion (status -1).

Without --video the library writes the fused panorama to OUT.jpg and keeps OUT pending
for the colour step in its handle, which lives as long as this process. --isp runs the
colour step (ZEMU_ExecuteISPHandle) on that handle right after the stitch and writes OUT;
a later `velmora isp` is a new process with a new handle and finds nothing pending.

--video also stitches the lower camera from every position's middle exposure, matches its
tones to the frame one second into the rig video beside shot 16 (its folder, the first 14
characters of its name, ".mp4"; `velmora simulate --video` writes one), runs the colour
step at once and writes OUT with the lower view composited in. Its shots must be at least
4736x3324.

The colour step (--isp, --video) runs isp.bat with ./asset/ in the working directory:
copy share/isp/isp.bat and share/isp/asset/ there (README: "Colour step (ISP) on Linux").)";

class HdrCommand : public Command {
 public:
  const char* name() const override { return "hdr"; }
  const char* summary() const override {
    return "Fuse and stitch the upper camera's bracketed shots into a panorama (HDR stitch).";
  }

  void configure(CLI::App& command) override {
    command.footer(kHdrFooter);
    command.add_option("shots", shotArguments_, "12 or 18 shots, or one folder of brackets")
        ->required();
    command.add_option("-o,--out", outputPath_, "Panorama to write (the final path)")->required();
    command
        .add_option("-c,--up-config", upConfig_,
                    "Upper camera's configuration (file name beginning 'Up.')")
        ->check(CLI::ExistingFile);
    CLI::Option* video =
        command.add_flag("--video", withVideo_, "Video variant: composite the lower camera's view");
    command
        .add_option("-d,--down-config", downConfig_,
                    "Lower camera's configuration (file name beginning 'D'), used by --video")
        ->check(CLI::ExistingFile)
        ->needs(video);
    addCameraGridOptions(command, tableDir_, shotSize_, grid_, "Size of every shot (both cameras)",
                         "Panorama size (both cameras)");
    command
        .add_option("--exposures", exposures_,
                    "Exposures per head position, 2 or 3 (default: as many as the shots hold)")
        ->check(CLI::IsMember({2, 3}));
    command.add_option("--gains", gains_, "Red, green and blue gains")->capture_default_str();
    command
        .add_flag("--isp", withIsp_,
                  "Run the colour step on the same handle after the stitch and write the panorama")
        ->excludes(video);
    viewerReady_.configure(command);
  }

  int run() override {
    const Gains gains = parseGains(gains_);
    const BracketShots shots = resolveBracketShots(shotArguments_, exposures_);
    const std::string upConfig = configurationFor(upConfig_, shots, "Up.txt", "--up-config");
    const std::string downConfig =
        withVideo_ ? configurationFor(downConfig_, shots, "Down.txt", "--down-config") : "";
    if (withVideo_) {
      requireProgram("ffmpeg", "The video variant grabs a frame of the rig video with ffmpeg");
    }
    if (withVideo_ || withIsp_) requireColourStepSetup();
    if (viewerReady_.requested() && !withVideo_ && !withIsp_) {
      throw std::runtime_error(
          "--export360 needs the final panorama: add --isp (or --video) to write it.");
    }

    StitchSession session;
    // Only the video variant uses the lower camera, so only it initialises that camera.
    for (const std::string& config : {upConfig, downConfig}) {
      if (config.empty()) continue;
      const int code = session.init(config, tableDir_, shotSize_, grid_);
      if (!reportStatus(name(), "Init of " + config, code)) return 1;
    }
    if (!reportStatus(
            name(), "HDR stitch",
            session.hdr(shots.slots, outputPath_, withVideo_, gains, shots.exposureCount))) {
      return 1;
    }
    if (withVideo_) return finished(shots);
    if (!withIsp_) {
      std::cout << "Fused panorama written to " << outputPath_ << ".jpg, pending for the colour "
                << "step on this process's handle, which ends with the process; run with --isp "
                << "to write " << outputPath_ << "." << std::endl;
      return 0;
    }
    if (!reportStatus(name(), "colour step", session.isp(outputPath_))) return 1;
    return finished(shots);
  }

 private:
  int finished(const BracketShots& shots) const {
    std::cout << "Panorama written to " << outputPath_ << std::endl;
    if (viewerReady_.requested()) viewerReady_.writeBeside(outputPath_, shots.slots.front());
    return 0;
  }

  std::vector<std::string> shotArguments_;
  std::string outputPath_;
  std::string upConfig_;
  std::string downConfig_;
  std::string tableDir_;
  PixelSize shotSize_{5472, 3648};
  PixelSize grid_{8192, 4096};
  int exposures_ = 0;
  std::string gains_ = "1,1,1";
  bool withVideo_ = false;
  bool withIsp_ = false;
  ViewerReadyOption viewerReady_;
};

const CommandRegistration<HdrCommand> registration;

}  // namespace

}  // namespace velmora::tool
