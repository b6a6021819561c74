#include "run/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <string>

namespace host {
namespace {

constexpr int kBarWidth = 30;
constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr auto kPlainLine = std::chrono::seconds(5);

std::string bar(long done, long expected) {
  const double share = std::clamp(static_cast<double>(done) / static_cast<double>(expected), 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(std::lround(share * kBarWidth));
  return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
}

}  // namespace

std::string progressText(long done, long expected, double seconds) {
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
  if (expected <= 0) return fmt::format("{} frames, {:.1f} frames/s", done, rate);
  const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(expected));
  const double left = rate > 0 ? static_cast<double>(std::max(0L, expected - done)) / rate : 0.0;
  return fmt::format("{:3.0f} %  {}/{} frames, {:.1f} frames/s, {:.0f} s left", share * 100, done, expected, rate,
                     std::ceil(left));
}

Progress::Progress() : terminal_(isatty(STDERR_FILENO) != 0) {}

void Progress::begin(const RunInfo& info) {
  expected_ = info.expectedFrames;
  begin_ = drawn_ = Clock::now();
}

void Progress::frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& /*records*/) {
  ++done_;
  const auto wait = terminal_ ? Clock::duration(kRedraw) : Clock::duration(kPlainLine);
  if (Clock::now() - drawn_ < wait) return;
  draw_();
}

void Progress::draw_() {
  drawn_ = Clock::now();
  const std::string text = progressText(done_, expected_, std::chrono::duration<double>(drawn_ - begin_).count());
  if (terminal_) {
    std::fprintf(stderr, "\r%s%s\033[K", expected_ > 0 ? bar(done_, expected_).c_str() : "", text.c_str());
  } else {
    std::fprintf(stderr, "%s\n", text.c_str());
  }
}

void Progress::end() {
  if (terminal_) std::fprintf(stderr, "\r\033[K");  // the summary says it all
}

}  // namespace host
