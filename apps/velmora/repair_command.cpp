// velmora repair: stitches the upper camera's bracketed shots again through the library's
// panorama repair and replaces host-given rectangles by the single shot that covers their
// structure; the library runs the colour step on the result.
#include <iostream>

#include "velmora/bracket_shots.h"
#include "velmora/command.h"
#include "velmora/external_programs.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

constexpr char kRepairFooter[] =
    R"(The shots: 18 files, position by position (p0e0 p0e1 p0e2 p1e0 ...), or one folder
written by `velmora simulate --exposures 2,1,0.5` (the configuration then defaults to its
Up.txt). The repair fuses three exposures per head position.

Rectangles are in the coordinates of the framed panorama the library writes, black bands
included: its top band of int(0.12 x grid height) rows comes off the Y given here. They are
repaired in the order given, each seeing the earlier repairs. A rectangle whose structure
lies within 30 degrees of the panorama's left and right edge, or that no single shot covers
well, is left as it is ("<i>th ROI over cur sphere.", i counted from 0).

The library runs the colour step on the result: isp.bat with ./asset/ in the working
directory (copy share/isp/isp.bat and share/isp/asset/ there; README: "Colour step (ISP)
on Linux").)";

class RepairCommand : public Command {
 public:
  const char* name() const override { return "repair"; }
  const char* summary() const override {
    return "Re-stitch bracketed shots and repair rectangles of the panorama from single shots.";
  }

  void configure(CLI::App& command) override {
    command.footer(kRepairFooter);
    command.add_option("shots", shotArguments_, "18 shots, or one folder of brackets")->required();
    command.add_option("-o,--out", outputPath_, "Repaired panorama to write")->required();
    command
        .add_option("-c,--up-config", upConfig_,
                    "Upper camera's configuration (file name beginning 'Up.')")
        ->check(CLI::ExistingFile);
    addCameraGridOptions(command, tableDir_, shotSize_, grid_, "Size of every shot",
                         "Panorama size");
    const CLI::Validator rectangle(
        [](std::string& text) {
          try {
            parsePixelRect(text);
          } catch (const CLI::ValidationError& error) {
            return std::string(error.what());
          }
          return std::string();
        },
        "X,Y,W,H");
    command
        .add_option("--rect", rectangleTexts_,
                    "A rectangle to repair, X,Y,WIDTH,HEIGHT in the framed panorama; repeat "
                    "for more")
        ->required()
        ->allow_extra_args(false)
        ->check(rectangle);
    command.add_option("--gains", gains_, "Red, green and blue gains")->capture_default_str();
  }

  int run() override {
    const Gains gains = parseGains(gains_);
    const BracketShots shots = resolveBracketShots(shotArguments_, kSlotsPerPosition);
    const std::string upConfig = configurationFor(upConfig_, shots, "Up.txt", "--up-config");
    std::vector<PixelRect> rectangles;
    for (const std::string& text : rectangleTexts_) rectangles.push_back(parsePixelRect(text));
    requireColourStepSetup();

    StitchSession session;
    if (!reportStatus(name(), "Init of " + upConfig,
                      session.init(upConfig, tableDir_, shotSize_, grid_))) {
      return 1;
    }
    if (!reportStatus(name(), "repair",
                      session.repair(shots.slots, outputPath_, rectangles, gains))) {
      return 1;
    }
    std::cout << "Repaired panorama written to " << outputPath_ << std::endl;
    return 0;
  }

 private:
  std::vector<std::string> shotArguments_;
  std::string outputPath_;
  std::string upConfig_;
  std::string tableDir_;
  PixelSize shotSize_{5472, 3648};
  PixelSize grid_{8192, 4096};
  std::vector<std::string> rectangleTexts_;
  std::string gains_ = "1,1,1";
};

const CommandRegistration<RepairCommand> registration;

}  // namespace

}  // namespace velmora::tool
