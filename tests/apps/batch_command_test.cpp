// velmora batch on four simulated captures (one with a truncated shot), run as a user runs it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <thread>

#include "apps/tool_run.h"
#include "support/scoped_process_state.h"
#include "support/test_support.h"

namespace velmora::testing {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::vector<json> jsonLines(const std::string& path) {
  std::vector<json> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
  return lines;
}

// Every file below `dir` whose name begins with '.' (the library's temporaries).
std::vector<std::string> hiddenFiles(const fs::path& dir) {
  std::vector<std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    if (entry.path().filename().string()[0] == '.') found.push_back(entry.path().string());
  }
  return found;
}

class BatchCommand : public ::testing::Test {
 protected:
  // c0 ... c3, both cameras; c2's Up_3.jpg cut short.
  static void SetUpTestSuite() {
    captures_ = std::make_unique<TempDir>();
    for (int k = 0; k < 4; ++k) {
      const ToolRun simulated =
          runTool(*captures_, "simulate -o " + capture(k) + " --no-truth --noise 2 --seed " +
                                  std::to_string(k + 1) + kSizes);
      ASSERT_EQ(simulated.exitCode, 0) << simulated.err;
    }
    intactShot_ = readFile(capture(2) + "/Up_3.jpg");
    writeTextFile(capture(2) + "/Up_3.jpg", intactShot_.substr(0, intactShot_.size() / 2));
    const ToolRun scanned = runTool(
        *captures_, "batch scan " + captures_->path().string() + " --grid 128x64 -o " + manifest());
    ASSERT_EQ(scanned.exitCode, 0) << scanned.err;
  }
  static void TearDownTestSuite() { captures_.reset(); }

  static std::string capture(int k) { return captures_->file("c" + std::to_string(k)); }
  static std::string manifest() { return captures_->file("manifest.jsonl"); }
  ToolRun batch(const std::string& arguments, const std::string& setUp = "") const {
    return runTool(console_, "batch " + arguments, setUp);
  }
  std::string out(const std::string& name = "") const { return output_.file(name); }

  static constexpr char kSizes[] = " --shot-size 200x150 --grid 128x64";
  static inline std::unique_ptr<TempDir> captures_;
  static inline std::string intactShot_;
  TempDir output_;
  TempDir console_;
};

TEST_F(BatchCommand, StitchesLikeTheStitchCommandRecordsTheFailureAndResumes) {
  expectRun(batch(manifest() + " -o " + out() + " --jobs 2 --export360"), 1,
            {"4 to run, 2 at once (--jobs)", "[4/4]", "3 done, 1 failed, 0 stopped, 0 not run"});
  const std::vector<json> status = jsonLines(out("status.jsonl"));
  ASSERT_EQ(status.size(), 4u);
  for (const json& record : status) {
    SCOPED_TRACE(record.dump());
    EXPECT_EQ(record["operation"], "stitch");
    EXPECT_GT(record["seconds"].get<double>(), 0.0);
    if (record["name"] == "c2") {
      EXPECT_EQ(record["outcome"], "failed");
      EXPECT_EQ(record["code"], -1);
      EXPECT_EQ(record["error"], "Read imgPath: " + capture(2) + "/Up_3.jpg error.");
      EXPECT_FALSE(fs::exists(out("c2_Up.jpg")) || fs::exists(out("c2_Down.jpg")));
      continue;
    }
    EXPECT_EQ(record["outcome"], "done");
    EXPECT_EQ(record["code"], 0);
    EXPECT_EQ(record["error"], "");
    EXPECT_EQ(record["output"], out(record["name"].get<std::string>() + "_Up.jpg"));
  }
  // Byte for byte what `velmora stitch` writes, for both cameras of every capture done.
  for (int k : {0, 1, 3}) {
    for (const std::string camera : {"Up", "Down"}) {
      const std::string single = console_.file(camera + std::to_string(k) + ".jpg");
      std::string shots;
      for (int p = 0; p < 6; ++p)
        shots += " " + capture(k) + "/" + camera + "_" + std::to_string(p) + ".jpg";
      ASSERT_EQ(runTool(console_, "stitch -c " + capture(k) + "/" + camera + ".txt -t " +
                                      out("tables") + kSizes + " -o " + single + shots)
                    .exitCode,
                0);
      EXPECT_EQ(readFile(single), readFile(out("c" + std::to_string(k) + "_" + camera + ".jpg")))
          << camera << k;
    }
  }

  // Viewer-ready files beside the panoramas done; the report lists the failure first and every
  // image it names is there.
  EXPECT_EQ(cv::imread(out("c3_Down_360.jpg")).size(), cv::Size(128, 64));
  EXPECT_FALSE(fs::exists(out("c2_Up_360.jpg")));
  const std::string page = readFile(out("report/index.html"));
  EXPECT_LT(page.find("<td>c2</td>"), page.find("<td>c0</td>"));
  EXPECT_NE(page.find("Read imgPath: "), std::string::npos);
  size_t named = 0;
  for (size_t at = page.find("src=\""); at != std::string::npos; at = page.find("src=\"", at + 1)) {
    const std::string file = page.substr(at + 5, page.find('"', at + 5) - at - 5);
    EXPECT_TRUE(fs::exists(out("report/" + file))) << file;
    ++named;
  }
  EXPECT_EQ(named, 1u + 3 + 6);  // the viewer's script, three previews, six flat panoramas

  // A second run does nothing; --retry-failed runs the repaired capture alone.
  expectRun(batch(manifest() + " -o " + out()), 1,
            {"3 done earlier, 1 failed earlier (--retry-failed runs them again), 0 to run"});
  EXPECT_EQ(jsonLines(out("status.jsonl")).size(), 4u);
  writeTextFile(capture(2) + "/Up_3.jpg", intactShot_);
  const ToolRun retried = batch(manifest() + " -o " + out() + " --retry-failed");
  writeTextFile(capture(2) + "/Up_3.jpg", intactShot_.substr(0, intactShot_.size() / 2));
  expectRun(retried, 0, {"3 done earlier, 0 failed earlier, 1 to run", "[1/1] c2 done"});
  EXPECT_EQ(jsonLines(out("status.jsonl")).size(), 5u);
  EXPECT_TRUE(fs::exists(out("c2_Up.jpg")) && fs::exists(out("c2_Down.jpg")));
  EXPECT_TRUE(hiddenFiles(out()).empty());
}

TEST_F(BatchCommand, SigtermStopsTheRunningCaptureWithoutLeftoversAndTheNextRunGoesOn) {
  const pid_t pid = fork();
  if (pid == 0) {
    const std::string log = console_.file("stopped.txt");
    freopen(log.c_str(), "w", stdout);
    execl(VELMORA_TOOL, VELMORA_TOOL, "batch", manifest().c_str(), "-o", out().c_str(), "--jobs",
          "1", static_cast<char*>(nullptr));
    _exit(127);
  }
  // Stop it while the second capture runs.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(5);
  while (readFile(out("status.jsonl")).empty() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGTERM) << readFile(console_.file("stopped.txt"));

  size_t done = 0, stopped = 0;
  for (const json& record : jsonLines(out("status.jsonl"))) {
    const std::string name = record["name"];
    SCOPED_TRACE(record.dump());
    if (record["outcome"] == "done") ++done;
    if (record["outcome"] == "stopped") {
      ++stopped;
      EXPECT_EQ(record["signal"], SIGTERM);
    }
    EXPECT_EQ(fs::exists(out(name + "_Up.jpg")), record["outcome"] == "done");
    EXPECT_EQ(fs::exists(out(name + "_Down.jpg")), record["outcome"] == "done");
  }
  ASSERT_GE(done, 1u);
  ASSERT_LT(done, 3u);
  EXPECT_EQ(stopped, 1u);  // the capture that was running
  EXPECT_TRUE(hiddenFiles(out()).empty());

  expectRun(batch(manifest() + " -o " + out()), 1,
            {std::to_string(done) + " done earlier", "3 done, 1 failed, 0 stopped, 0 not run"});
}

TEST_F(BatchCommand, ArrayTasksShareTheManifestAndTheReportMergesThem) {
  // Two more captures of one bracket, each with the stand-in colour step in a working folder of
  // its own: an HDR stitch (task 0) and a repair (task 1).
  TempDir bracket, colour;
  ASSERT_EQ(runTool(bracket, "simulate -o " + bracket.file("h") +
                                 " --camera up --exposures 2,1,0.5 --no-truth" + kSizes)
                .exitCode,
            0);
  writeStandInColourStep(colour.path());
  const ToolRun scanned =
      runTool(bracket, "batch scan " + bracket.path().string() + " --isp --grid 128x64 -o " +
                           captures_->file("h.jsonl"));
  ASSERT_EQ(scanned.exitCode, 0) << scanned.err;
  const std::string mixed = captures_->file("mixed.jsonl");
  json repair = json::parse(readFile(captures_->file("h.jsonl")));
  repair.erase("isp");
  repair.update({{"name", "r"}, {"operation", "repair"}, {"output", "fixed/r.png"}});
  repair["rects"] = json::array({json::array({40, 20, 10, 10})});
  writeTextFile(mixed,
                readFile(manifest()) + readFile(captures_->file("h.jsonl")) + repair.dump() + "\n");

  const std::string common =
      mixed + " -o " + out() + " --tasks 2 --colour-step " + colour.path().string();
  expectRun(batch(common + " --task 0"), 1, {"3 captures in task 0", "c2 failed"});
  expectRun(batch(common, "SLURM_ARRAY_TASK_ID=1 "), 0, {"3 captures in task 1"});
  std::vector<std::string> names[2];
  for (int task : {0, 1}) {
    for (const json& record : jsonLines(out("status-task-" + std::to_string(task) + ".jsonl"))) {
      EXPECT_EQ(record["task"], task);
      names[task].push_back(record["name"]);
    }
    std::sort(names[task].begin(), names[task].end());  // in the order they finished
  }
  EXPECT_EQ(names[0], (std::vector<std::string>{"c0", "c2", "h"}));
  EXPECT_EQ(names[1], (std::vector<std::string>{"c1", "c3", "r"}));
  EXPECT_TRUE(fs::exists(out("h.jpg")) && !fs::exists(out("h.jpg.jpg")));
  EXPECT_TRUE(fs::exists(out("fixed/r.png")) && !fs::exists(out("fixed/r.png.jpg")));
  EXPECT_FALSE(fs::exists(out(".work")));

  EXPECT_FALSE(fs::exists(out("report")));  // a task's share is not the batch
  expectRun(batch("report " + out() + " --manifest " + mixed), 1,
            {"6 captures: 5 done, 1 failed, 0 stopped, 0 not run", "c2 failed (status -1)",
             out("report/index.html")});
  const json summary = json::parse(readFile(out("summary.json")));
  EXPECT_EQ(summary["done"], 5);
  EXPECT_EQ(summary["records"].size(), 6u);
  expectRun(batch(mixed + " -o " + out() + " --task 2 --tasks 2"), 1, {"beyond the 2 tasks"});
}

TEST_F(BatchCommand, ABadManifestIsRefusedByLineAndFieldBeforeAnyWork) {
  const std::string good = readFile(manifest()).substr(0, readFile(manifest()).find('\n') + 1);
  json second = json::parse(good);
  second["name"] = "second";
  const auto changed = [&](const std::function<void(json&)>& change) {
    json record = second;
    change(record);
    return record.dump();
  };
  writeTextFile(console_.file("Up.txt"), cameraConfigText(90.0, 75.0, 100.0));
  const struct {
    std::string line;
    std::string said;
  } cases[] = {
      {"{\"name\": ", "bad.jsonl:2: not a JSON object"},
      {changed([](json& r) { r["shot"] = 1; }), ":2: field \"shot\": unknown field"},
      {changed([](json& r) { r["operation"] = "pano"; }), ":2: field \"operation\": 'pano'"},
      {changed([](json& r) { r["up"]["shots"].erase(0); }),
       "field \"up.shots\": holds 5 shots, not 6"},
      {changed([](json& r) { r["down"]["config"] = "c0/Dn.txt"; }),
       "field \"down.config\": no file"},
      {changed([](json& r) { r["name"] = "c0"; }),
       "field \"name\": 'c0' is already used on line 1"},
      {changed([&](json& r) { r["up"]["config"] = console_.file("Up.txt"); }),
       "field \"up.config\": its calibration, shot size or grid differ from line 1's"},
      {changed([](json& r) { r["grid"] = "256x128"; }), "field \"up.config\": its calibration"},
      {changed([](json& r) { r["operation"] = "hdr"; }),
       "field \"up.shots\": holds 6 shots, not 12 or 18"},
      {changed([](json& r) {
         r["rects"] = json::array({json::array({1, 2, 3, 4})});
       }),
       "field \"rects\": only a repair"},
      {changed([](json& r) { r["output"] = "../away.jpg"; }), "field \"output\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    writeTextFile(captures_->file("bad.jsonl"), good + c.line + "\n");
    const ToolRun run = batch(captures_->file("bad.jsonl") + " -o " + out("o"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.said(c.said)) << run.err;
    EXPECT_FALSE(fs::exists(out("o")));
  }
}

}  // namespace
}  // namespace velmora::testing
