// The faults that disks and processes inflict on a host, each injected for real into processes
// that drive the library through its public interface:
//   1. the disk fills up while the table or the panorama is written;
//   2. the process is killed in the middle of writing the table or the panorama;
//   3. two processes initialise the same camera into one table folder at the same moment;
//   4. eight threads of one process stitch on eight handles at once.
// The processes are tests/host/fault_host.c; tests/host/write_fault_shim.c, preloaded into them,
// fills the disk (ENOSPC) or stops the process in the middle of a write.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <thread>

#include "support/simulated_bracket.h"

extern char** environ;

namespace velmora::testing {
namespace {

namespace fs = std::filesystem;

constexpr char kWriteLimit[] = "VELMORA_WRITE_LIMIT=4096";  // fail or stop 4 kB into the file
constexpr char kPause[] = "VELMORA_WRITE_PAUSE=1";
constexpr char kNone[] = "(no file)";

// Short contents as they are, long ones as their size and hash, so that failures stay readable.
std::string summary(const std::string& bytes) {
  if (bytes.size() < 64) return bytes;
  return std::to_string(bytes.size()) + " bytes, hash " +
         std::to_string(std::hash<std::string>()(bytes));
}
std::string contentOf(const std::string& path) {
  return fs::exists(path) ? summary(readFile(path)) : kNone;
}

// A null-terminated list for the exec family.
std::vector<char*> execList(std::vector<std::string>& texts) {
  std::vector<char*> list;
  for (std::string& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

// The table folder and the output folder of the host processes, and what a fault-free run gives.
class FaultsSurvived : public SimulatedBracket {
 protected:
  static void SetUpTestSuite() {
    SimulatedBracket::SetUpTestSuite();
    void* handle = ZEMU_CreateOptFlowStitchHandle();
    CapturedConsole quiet;
    ZEMU_InitOptFlowStitchHandle(handle, files_.configPath.c_str(), shots_->path().c_str(),
                                 kShotWidth, kShotHeight, kGridWidth, kGridHeight);
    const std::string panorama = shots_->file("panorama.jpg");
    ZEMU_ExecuteOptFlowStitchHandle(handle, files_.configPath.c_str(), pointers(singles_).data(),
                                    panorama.c_str(), 1.0f, 1.0f, 1.0f);
    ZEMU_DestroyOptFlowStitchHandle(handle);
    table_ = readFile(shots_->file("table_Up.bin"));
    panorama_ = readFile(panorama);
  }
  void SetUp() override {
    ASSERT_EQ(table_.size(), 8u * kGridWidth * kGridHeight);
    fs::create_directory(file("tables"));
    fs::create_directory(file("out"));
  }

  // Starts a host that initialises the Up camera and, with `stitch`, stitches to out/up.jpg;
  // `environment` is added to the test's own. Its console goes to <name>.out and <name>.err.
  pid_t start(const std::string& name, bool stitch, std::vector<std::string> environment = {}) {
    std::vector<std::string> arguments{VELMORA_FAULT_HOST, files_.configPath, file("tables")};
    for (int size : {kShotWidth, kShotHeight, kGridWidth, kGridHeight})
      arguments.push_back(std::to_string(size));
    if (stitch) arguments.push_back(output());
    if (stitch) arguments.insert(arguments.end(), singles_.begin(), singles_.end());
    if (!environment.empty()) {
      // AddressSanitizer would refuse a preloaded library ahead of its runtime.
      const char* asan = std::getenv("ASAN_OPTIONS");
      environment.push_back(std::string("ASAN_OPTIONS=") + (asan ? asan : "") +
                            ":verify_asan_link_order=0");
      environment.push_back(std::string("LD_PRELOAD=") + VELMORA_WRITE_FAULT_SHIM);
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
      environment.emplace_back(*variable);  // the first of two wins
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const auto& [fd, suffix] : {std::pair{1, ".out"}, std::pair{2, ".err"}}) {
      posix_spawn_file_actions_addopen(&actions, fd, file(name + suffix).c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, VELMORA_FAULT_HOST, &actions, nullptr, execList(arguments).data(),
                          execList(environment).data()),
              0);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
  }
  // Waits for the host to end, or with `stopped` to stop itself, and returns the wait status.
  static int wait(pid_t pid, bool stopped = false) {
    int status = 0;
    while (waitpid(pid, &status, stopped ? WUNTRACED : 0) < 0 && errno == EINTR) continue;
    return status;
  }
  // The host's last line: "codes <init> <stitch>\n".
  std::string codes(const std::string& name) const {
    const std::string text = readFile(file(name + ".out"));
    return text.substr(std::min(text.rfind("codes "), text.size()));
  }
  static std::vector<std::string> hiddenFiles(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
      const std::string name = entry.path().filename().string();
      if (name[0] == '.') names.push_back(name);
    }
    return names;
  }
  std::string tablePath() const { return file("tables/table_Up.bin"); }
  std::string output() const { return file("out/up.jpg"); }

  static inline std::string table_, panorama_;
};

// A full disk (the write fails 4 kB into the file) or a kill (4 kB into the file), with the
// path holding nothing or an older file; after it, a fault-free run in a new process.
struct FileFault {
  const char* what;
  bool killed;
  bool panorama;       // the panorama's write is hit; otherwise the table's
  const char* before;  // the path's content before, or null for none
};
const FileFault kFileFaults[] = {{"disk full, table", false, false, nullptr},
                                 {"disk full, table, a short one before", false, false, "short"},
                                 {"disk full, panorama", false, true, nullptr},
                                 {"disk full, panorama, an old one before", false, true, "old"},
                                 {"killed, table", true, false, nullptr},
                                 {"killed, panorama, an old one before", true, true, "old"}};

TEST_F(FaultsSurvived, DiskFullOrKilledWhileWritingTheTableOrThePanorama) {
  for (const FileFault& fault : kFileFaults) {
    SCOPED_TRACE(fault.what);
    const std::string path = fault.panorama ? output() : tablePath();
    const std::string folder = file(fault.panorama ? "out" : "tables");
    if (fault.panorama) writeTextFile(tablePath(), table_);
    if (fault.before) writeTextFile(path, fault.before);
    if (fault.killed) {
      const pid_t host = start("faulty", true, {kWriteLimit, kPause});
      ASSERT_TRUE(WIFSTOPPED(wait(host, true))) << readFile(file("faulty.err"));
      kill(host, SIGKILL);
      EXPECT_EQ(WTERMSIG(wait(host)), SIGKILL);
    } else {
      EXPECT_NE(wait(start("faulty", true, {kWriteLimit})), 0);
      EXPECT_EQ(codes("faulty"), fault.panorama ? "codes 0 -1\n" : "codes -1 0\n");
      EXPECT_EQ(readFile(file("faulty.err")),
                (fault.panorama ? "Write image: " : "Write table: ") + path + " error.\n");
    }
    // The path holds its old content or nothing, the table is whole or absent, and only a
    // killed write leaves its hidden temporary (4 kB), which is never taken for the file.
    EXPECT_EQ(contentOf(path), fault.before ? fault.before : kNone);
    if (fault.panorama) {
      EXPECT_EQ(contentOf(tablePath()), summary(table_));
    }
    const std::vector<std::string> leftovers = hiddenFiles(folder);
    EXPECT_EQ(leftovers.size(), fault.killed ? 1u : 0u);
    // A fault-free host in a new process: Init and stitch succeed and give what they always give.
    EXPECT_EQ(wait(start("clean", true)), 0) << readFile(file("clean.err"));
    EXPECT_EQ(contentOf(tablePath()), summary(table_));
    EXPECT_EQ(contentOf(output()), summary(panorama_));
    EXPECT_EQ(hiddenFiles(folder), leftovers);
    for (const std::string& name : leftovers) {
      // Init removes a table's leftover once it is an hour old, and only then.
      const std::string leftover = folder + "/" + name;
      EXPECT_EQ(fs::file_size(leftover), 4096u);
      fs::last_write_time(leftover, fs::file_time_type::clock::now() - std::chrono::minutes(59));
      EXPECT_EQ(wait(start("young", false)), 0);
      EXPECT_TRUE(fs::exists(leftover));
      fs::last_write_time(leftover, fs::file_time_type::clock::now() - std::chrono::minutes(61));
      EXPECT_EQ(wait(start("old", false)), 0);
      EXPECT_EQ(fs::exists(leftover), fault.panorama);  // beside images they are the host's
      fs::remove(leftover);
    }
    fs::remove(tablePath());
    fs::remove(output());
  }
}

TEST_F(FaultsSurvived, TwoProcessesInitialisingOneCameraAtOnce) {
  // Both compute the table and stop in the middle of writing it, so that both writes are under
  // way at once; then both go on together (even rounds) or one after the other (odd rounds).
  for (int round = 0; round < 10; ++round) {
    SCOPED_TRACE(round);
    const pid_t hosts[] = {start("first", false, {kWriteLimit, kPause}),
                           start("second", false, {kWriteLimit, kPause})};
    for (pid_t host : hosts) EXPECT_TRUE(WIFSTOPPED(wait(host, true)));
    EXPECT_EQ(hiddenFiles(file("tables")).size(), 2u);
    EXPECT_EQ(contentOf(tablePath()), kNone);  // no reader sees a table in the making
    const bool inTurn = round % 2 == 1;
    for (pid_t host : hosts) {
      kill(host, SIGCONT);
      EXPECT_EQ(inTurn ? wait(host) : 0, 0);
    }
    for (pid_t host : hosts) EXPECT_EQ(inTurn ? 0 : wait(host), 0);
    EXPECT_EQ(codes("first") + codes("second"), "codes 0 0\ncodes 0 0\n");
    EXPECT_EQ(contentOf(tablePath()), summary(table_));
    EXPECT_TRUE(hiddenFiles(file("tables")).empty());
    fs::remove(tablePath());
  }
}

TEST_F(FaultsSurvived, EightHandlesStitchingOnEightThreadsAtOnce) {
  // Each its own work: an exposure of the bracket and a colour balance.
  constexpr int kThreads = 8;
  const auto run = [this](int i) {
    void* handle = ZEMU_CreateOptFlowStitchHandle();
    ZEMU_InitOptFlowStitchHandle(handle, files_.configPath.c_str(), file("tables").c_str(),
                                 kShotWidth, kShotHeight, kGridWidth, kGridHeight);
    const std::string output = file("out/" + std::to_string(i) + ".jpg");
    const float gain = 1.0f + 0.05f * static_cast<float>(i / 3);
    ZEMU_ExecuteOptFlowStitchHandle(handle, files_.configPath.c_str(),
                                    pointers(sim::shotsOfBracket(files_, i % 3)).data(),
                                    output.c_str(), gain, 1.0f, 2.0f - gain);
    const unsigned code = ZEMU_GetOptFlowStitchCode(handle);
    ZEMU_DestroyOptFlowStitchHandle(handle);
    return code == 0 ? readFile(output) : "code " + std::to_string(code);
  };
  writeTextFile(tablePath(), table_);
  std::vector<std::string> alone(kThreads), together(kThreads);
  {
    CapturedConsole quiet;  // not while threads write: its buffers are not made for that
    for (int i = 0; i < kThreads; ++i) alone[i] = run(i);
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back([&, i] { together[i] = run(i); });
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < kThreads; ++i) EXPECT_TRUE(together[i] == alone[i]) << i;
  EXPECT_EQ(std::set<std::string>(alone.begin(), alone.end()).size(), size_t{kThreads});
}

}  // namespace
}  // namespace velmora::testing
