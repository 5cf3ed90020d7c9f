// velmora batch-capture (hidden): runs one capture of a batch in this process, through the same
// library calls as the stitch, hdr and repair subcommands. The batch starts it with the record
// as JSON; the exit code says how the library's calls ended (see batch_capture.h).
#include <filesystem>
#include <iostream>

#include "velmora/batch_capture.h"
#include "velmora/command.h"
#include "velmora/external_programs.h"
#include "velmora/tool_support.h"

namespace velmora::tool {

int libraryCodeOfExit(int exitCode) {
  if (exitCode == kCaptureExitDone) return 0;
  return exitCode == kCaptureExitOutOfMemory ? -2 : -1;
}

std::string libraryOutputPath(const CaptureRecord& record, const std::string& outputPath) {
  if (record.operation == BatchOperation::Hdr && !record.colourStep)
    return outputPath.substr(0, outputPath.size() - 4);
  return outputPath;
}

namespace {

namespace fs = std::filesystem;

class BatchCaptureCommand : public Command {
 public:
  const char* name() const override { return kCaptureSubcommand; }
  const char* summary() const override { return "One capture of a batch (run by velmora batch)."; }

  void configure(CLI::App& command) override {
    command.group("");  // internal: not listed in the usage text
    command.add_option("--record", recordText_, "The capture's record as JSON")->required();
    command.add_option("--tables", tableDir_, "Projection table folder")->required();
    command.add_option("--out", outputDir_, "Output folder")->required();
  }

  int run() override {
    const CaptureRecord record = recordFromJson(nlohmann::json::parse(recordText_), "/");
    if (record.needsColourStep()) requireColourStepSetup();
    const std::vector<std::string> outputs = record.outputs();
    int code = 0;
    switch (record.operation) {
      case BatchOperation::Stitch: {
        size_t k = 0;
        for (const CameraShots* camera : {&record.up, &record.down}) {
          if (camera->config.empty() || code != 0) continue;
          code = stitch(record, *camera, outputPath(outputs[k++]));
        }
        break;
      }
      case BatchOperation::Hdr:
        code = hdr(record, outputPath(outputs[0]));
        break;
      case BatchOperation::Repair:
        code = repair(record, outputPath(outputs[0]));
        break;
    }
    if (code == 0) return kCaptureExitDone;
    return code == -2 ? kCaptureExitOutOfMemory : kCaptureExitFailed;
  }

 private:
  std::string outputPath(const std::string& output) const {
    return (fs::path(outputDir_) / output).string();
  }

  int init(StitchSession& session, const CaptureRecord& record, const std::string& config) const {
    const int code = session.init(config, tableDir_, record.shotSize, record.grid);
    reportStatus(name(), "Init of " + config, code);
    return code;
  }

  int stitch(const CaptureRecord& record, const CameraShots& camera,
             const std::string& output) const {
    StitchSession session;
    int code = init(session, record, camera.config);
    if (code != 0) return code;
    code = session.stitch(camera.config, camera.shots, output, record.gains.red, record.gains.green,
                          record.gains.blue);
    reportStatus(name(), "stitch of " + camera.config, code);
    return code;
  }

  int hdr(const CaptureRecord& record, const std::string& output) const {
    StitchSession session;
    int code = init(session, record, record.up.config);
    if (code != 0) return code;
    code = session.hdr(bracketSlots(record), libraryOutputPath(record, output), false, record.gains,
                       record.exposureCount());
    reportStatus(name(), "HDR stitch", code);
    if (code != 0 || !record.colourStep) return code;
    code = session.isp(output);
    reportStatus(name(), "colour step", code);
    return code;
  }

  int repair(const CaptureRecord& record, const std::string& output) const {
    StitchSession session;
    int code = init(session, record, record.up.config);
    if (code != 0) return code;
    code = session.repair(bracketSlots(record), output, record.rectangles, record.gains);
    reportStatus(name(), "repair", code);
    return code;
  }

  // 18 slots, exposure e of position p at p x 3 + e, empty beyond the exposure count.
  static std::vector<std::string> bracketSlots(const CaptureRecord& record) {
    std::vector<std::string> slots(18);
    const int exposures = record.exposureCount();
    for (int p = 0; p < 6; ++p) {
      for (int e = 0; e < exposures; ++e) slots[p * 3 + e] = record.up.shots[p * exposures + e];
    }
    return slots;
  }

  std::string recordText_;
  std::string tableDir_;
  std::string outputDir_;
};

const CommandRegistration<BatchCaptureCommand> registration;

}  // namespace

}  // namespace velmora::tool
