// velmora view: serves a report folder to a browser on this machine only (127.0.0.1), since
// browsers refuse to run a 360 viewer from file:// pages. Runs until Ctrl-C or SIGTERM.
#include <httplib.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "velmora/command.h"

namespace velmora::tool {

namespace {

constexpr char kLoopback[] = "127.0.0.1";

// SIGINT and SIGTERM blocked in this thread and every thread started after it, so that only the
// waiting thread takes them; the previous mask comes back at the end.
class BlockedStopSignals {
 public:
  BlockedStopSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
  }
  ~BlockedStopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  BlockedStopSignals(const BlockedStopSignals&) = delete;
  BlockedStopSignals& operator=(const BlockedStopSignals&) = delete;

  int wait() const {
    int signal = 0;
    sigwait(&signals_, &signal);
    return signal;
  }

 private:
  sigset_t signals_;
  sigset_t previous_;
};

class ViewCommand : public Command {
 public:
  const char* name() const override { return "view"; }
  const char* summary() const override {
    return "Serve a report folder on 127.0.0.1 to look at it in a browser (Ctrl-C stops).";
  }

  void configure(CLI::App& command) override {
    command.add_option("folder", folder_, "A report folder (velmora demo writes DIR/report)")
        ->required()
        ->check(CLI::ExistingDirectory);
    command.add_option("-p,--port", port_, "Port to listen on; 0 picks a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
  }

  int run() override {
    if (!std::filesystem::is_regular_file(std::filesystem::path(folder_) / "index.html")) {
      throw std::runtime_error(folder_ + " holds no index.html: give a report folder.");
    }
    httplib::Server server;
    if (!server.set_mount_point("/", folder_)) {
      throw std::runtime_error("Cannot serve " + folder_ + ".");
    }
    // Idle browser connections must not hold up the stop for long.
    server.set_keep_alive_timeout(1);
    const BlockedStopSignals stopSignals;
    const int port = port_ == 0 ? server.bind_to_any_port(kLoopback)
                                : (server.bind_to_port(kLoopback, port_) ? port_ : -1);
    if (port <= 0) {
      throw std::runtime_error("Cannot listen on " + std::string(kLoopback) + " port " +
                               std::to_string(port_) + " (in use? try --port 0).");
    }
    std::atomic<bool> stopping{false};
    std::thread listener([&server, &stopping] {
      server.listen_after_bind();
      // Listening ended without being asked to: wake the waiting thread.
      if (!stopping) kill(getpid(), SIGTERM);
    });
    std::cout << "Serving " << folder_ << " at http://" << kLoopback << ":" << port
              << "/ (Ctrl-C stops)" << std::endl;
    const int signal = stopSignals.wait();
    stopping = true;
    server.stop();
    listener.join();
    std::cout << "Stopped (" << (signal == SIGINT ? "interrupt" : "terminate") << ")." << std::endl;
    return 0;
  }

 private:
  std::string folder_;
  int port_ = 8360;
};

const CommandRegistration<ViewCommand> registration;

}  // namespace

}  // namespace velmora::tool
