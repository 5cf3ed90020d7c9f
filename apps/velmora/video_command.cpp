// velmora video: the library's video stitch. Grabs a frame of the rig video with ffmpeg, places
// the upper camera's view of it on a panorama, and starts the external video stitcher
// zemu-ffmpeg-velmora on the video; prints the two values the call returns.
#include <iostream>
#include <stdexcept>

#include "velmora.h"
#include "velmora/command.h"
#include "velmora/external_programs.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

constexpr char kVideoFooter[] =
    R"(The library grabs the frame one second into VIDEO with ffmpeg (written beside the video
as VIDEO.jpg and deleted again; the frame must be at least 3814x2846), projects it with the
upper camera's model onto the panorama's grid, and runs

  zemu-ffmpeg-velmora -s VIDEO -r w=3630:h=2670:x=184:y=176  -n STEM -o FOLDER

with STEM and FOLDER taken from --out. ffmpeg and zemu-ffmpeg-velmora are found in the
working directory or on PATH. --shot-size must be the rig's 5472x3648 for the frame to fit
the camera's canvas; `velmora simulate --video` writes a rig video to try it with.)";

// A video handle of the library, destroyed with this object.
class VideoSession {
 public:
  VideoSession() : handle_(ZEMU_CreateVideoStitchHandle()) {
    if (handle_ == nullptr) throw std::runtime_error("Cannot create a video handle.");
  }
  ~VideoSession() { ZEMU_DestroyVideoStitchHandle(handle_); }
  VideoSession(const VideoSession&) = delete;
  VideoSession& operator=(const VideoSession&) = delete;

  int init(const std::string& configPath, const std::string& tableDir, PixelSize shot,
           PixelSize grid) {
    ZEMU_InitVideoStitchHandle(handle_, configPath.c_str(), tableDir.c_str(), shot.width,
                               shot.height, grid.width, grid.height);
    return code();
  }

  // panoramaPath may be empty (no panorama). outA and outB keep their values on a failure.
  int execute(const std::string& panoramaPath, const std::string& videoPath,
              const std::string& outputPath, float& outA, float& outB) {
    ZEMU_ExecuteVideoStitchHandle(handle_, panoramaPath.empty() ? nullptr : panoramaPath.c_str(),
                                  videoPath.c_str(), outputPath.c_str(), nullptr, nullptr, &outA,
                                  &outB);
    return code();
  }

  int code() const { return static_cast<int>(ZEMU_GetVideoStitchCode(handle_)); }

 private:
  void* handle_;
};

class VideoCommand : public Command {
 public:
  const char* name() const override { return "video"; }
  const char* summary() const override {
    return "Stitch the rig video with the external video stitcher (video stitch).";
  }

  void configure(CLI::App& command) override {
    command.footer(kVideoFooter);
    command.add_option("--video", videoPath_, "The rig video")
        ->required()
        ->check(CLI::ExistingFile);
    command.add_option("-o,--out", outputPath_, "Output whose folder and stem name the result")
        ->required();
    command
        .add_option("--panorama", panoramaPath_,
                    "Panorama to place the frame on (default: none; its size becomes the grid)")
        ->check(CLI::ExistingFile);
    command
        .add_option("-c,--config", configPath_,
                    "Upper camera's configuration, the model of the frame's projection")
        ->required()
        ->check(CLI::ExistingFile);
    addCameraGridOptions(command, tableDir_, shotSize_, grid_, "The upper camera's shot size",
                         "Panorama grid");
  }

  int run() override {
    requireProgram("ffmpeg", "The video stitch grabs a frame of the video with ffmpeg");
    requireProgram("zemu-ffmpeg-velmora", "The video stitch runs zemu-ffmpeg-velmora");
    VideoSession session;
    if (!reportStatus(name(), "Init", session.init(configPath_, tableDir_, shotSize_, grid_))) {
      return 1;
    }
    float outA = 0.0f;
    float outB = 0.0f;
    const int code = session.execute(panoramaPath_, videoPath_, outputPath_, outA, outB);
    if (!reportStatus(name(), "video stitch", code)) {
      std::cerr << "velmora video: unless the library gave another reason above, ffmpeg "
                   "grabbed no frame one second into "
                << videoPath_ << " (unreadable or shorter than a second)." << std::endl;
      return 1;
    }
    std::cout << "outA = " << outA << std::endl << "outB = " << outB << std::endl;
    return 0;
  }

 private:
  std::string videoPath_;
  std::string outputPath_;
  std::string panoramaPath_;
  std::string configPath_;
  std::string tableDir_;
  PixelSize shotSize_{5472, 3648};
  PixelSize grid_{8192, 4096};
};

const CommandRegistration<VideoCommand> registration;

}  // namespace

}  // namespace velmora::tool
