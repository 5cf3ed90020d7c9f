#include "velmora/batch_progress.h"

#include <cstdio>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace velmora::tool {

namespace {

constexpr int kBarWidth = 30;

}  // namespace

BatchProgress::BatchProgress(std::ostream& out, size_t toRun, bool terminal)
    : out_(out), toRun_(toRun), terminal_(terminal), start_(std::chrono::steady_clock::now()) {}

std::string BatchProgress::clock(double seconds) {
  const long whole = static_cast<long>(seconds + 0.5);
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%02ld:%02ld", whole / 60, whole % 60);
  }
  return text;
}

// "3 done, 1 failed, 2 running, 01:02 elapsed, ~03:10 left": the time left assumes the captures
// still to finish take as long, at the same concurrency, as those finished so far.
std::string BatchProgress::counts() const {
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  std::ostringstream text;
  text << done_ << " done, " << failed_ << " failed, " << running_ << " running, " << clock(elapsed)
       << " elapsed";
  const size_t finished = done_ + failed_;
  if (finished > 0 && finished < toRun_)
    text << ", ~" << clock(elapsed / finished * (toRun_ - finished)) << " left";
  return text.str();
}

void BatchProgress::drawBar() {
  const size_t finished = done_ + failed_;
  const int filled = toRun_ == 0 ? kBarWidth : static_cast<int>(kBarWidth * finished / toRun_);
  out_ << "\r\033[K[" << std::string(filled, '#') << std::string(kBarWidth - filled, '.') << "] "
       << finished << "/" << toRun_ << "  " << counts() << std::flush;
}

void BatchProgress::started() {
  ++running_;
  if (terminal_) drawBar();
}

void BatchProgress::finished(const CaptureResult& result) {
  --running_;
  (result.done() ? done_ : failed_) += 1;
  std::ostringstream line;
  line << "velmora batch: [" << done_ + failed_ << "/" << toRun_ << "] " << result.name << " "
       << result.outcome << " after " << std::fixed << std::setprecision(1) << result.seconds
       << " s";
  if (!result.done()) line << " (status " << result.code << "): " << result.error;
  if (terminal_) {
    if (!result.done()) out_ << "\r\033[K" << line.str() << "\n";
    drawBar();
  } else {
    out_ << line.str() << " (" << counts() << ")" << std::endl;
  }
}

void BatchProgress::tick() {
  if (terminal_) drawBar();
}

void BatchProgress::close() {
  if (terminal_) out_ << std::endl;
}

}  // namespace velmora::tool
