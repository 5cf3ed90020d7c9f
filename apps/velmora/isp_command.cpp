// velmora isp: the library's colour step (ZEMU_ExecuteISPHandle) on a handle of its own. The step
// finishes a panorama that an HDR stitch left pending on the same handle, and a handle lives only
// as long as its process, so this command never finds one: it shows the library's answer and
// explains the flow that works, `velmora hdr --isp`.
#include <iostream>

#include "velmora/command.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

namespace {

constexpr char kIspFooter[] =
    R"(How the colour step works: an HDR stitch without its video flag writes the fused
panorama to NAME.jpg and records NAME as pending in the library handle it ran on; the
colour step, called with NAME on that same handle, runs isp.bat on NAME.jpg in the
working directory, deletes NAME.jpg and writes NAME. The pending entry lives in the
handle, and the handle in the process that made it.

This command makes a new handle, on which nothing is pending: the library prints
"NAME not found." and completes (status 0) without writing anything, and this command
exits with 1. It is there for a host that keeps one handle across both calls; from the
command line that host is

  velmora hdr SHOTS... -o NAME -t TABLES --isp

which stitches and runs the colour step on one handle in one process.)";

class IspCommand : public Command {
 public:
  const char* name() const override { return "isp"; }
  const char* summary() const override {
    return "Colour step of a pending HDR panorama (only within one process: see velmora hdr "
           "--isp).";
  }

  void configure(CLI::App& command) override {
    command.footer(kIspFooter);
    command.add_option("name", name_, "Final path the HDR stitch was given (-o)")->required();
  }

  int run() override {
    StitchSession session;
    const int code = session.isp(name_);
    if (!reportStatus(name(), "colour step", code)) return 1;
    std::cerr << "velmora isp: nothing was pending for " << name_
              << ": this process's handle is new, and a pending panorama lives only in the "
                 "handle of the HDR stitch that made it. Run `velmora hdr ... -o "
              << name_ << " --isp` to stitch and colour-process in one process." << std::endl;
    return 1;
  }

 private:
  std::string name_;
};

const CommandRegistration<IspCommand> registration;

}  // namespace

}  // namespace velmora::tool
