#include "run/run_summary.h"
#include "base/statistics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "base/interrupt.h"
#include "plugin/reason_words.h"

namespace host {
namespace {

double percent(long part, long all) {
  return all > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(all) : 0.0;
}

long countOf(const TargetTotals& totals, TrackState state) {
  const auto it = totals.states.find(state);
  return it == totals.states.end() ? 0 : it->second;
}

std::string targetLine(const TargetTotals& totals) {
  if (totals.updates == 0) {
    return totals.last.started ? "started on the last frame" : "did not start: " + explained(totals.last.reason);
  }
  const long tracked = countOf(totals, TrackState::Tracked);
  std::string line =
      fmt::format("tracked on {} of {} frames ({:.1f} %)", tracked, totals.updates, percent(tracked, totals.updates));
  for (const auto& [state, count] : totals.states) {
    if (state != TrackState::Tracked) line += fmt::format(", {} {}", name(state), count);
  }
  return line;
}

std::string lossLine(const TargetTotals& totals) {
  std::string line = totals.longestUnseen == 0
                         ? "never out of sight"
                         : fmt::format("longest out of sight: {} frame{} ({:.1f} s)", totals.longestUnseen,
                                       totals.longestUnseen == 1 ? "" : "s", totals.longestUnseenSeconds);
  if (!totals.lostReason.empty()) line += "; given up: " + explained(totals.lostReason);
  return line;
}

std::string endLine(const CallRecord& last) {
  if (!last.box) return fmt::format("at the end: {}, no box", name(last.state));
  const cv::Rect& b = *last.box;
  return fmt::format("at the end: {}, box {},{},{},{}", name(last.state), b.x, b.y, b.width, b.height);
}

}  // namespace

void RunSummary::begin(const RunInfo& info) {
  info_ = info;
}

void RunSummary::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  ++frames_;
  lastFrame_ = frame.index;
  for (const CallRecord& record : records) {
    TargetTotals& totals = totals_[record.target];
    if (!record.isInit) {
      ++totals.updates;
      ++totals.states[record.state];
      totals.update_ms.push_back(record.update_ms);
      if (record.framesSinceSeen && *record.framesSinceSeen > totals.longestUnseen) {
        totals.longestUnseen = *record.framesSinceSeen;
        totals.longestUnseenSeconds = record.secondsSinceSeen.value_or(0.0);
      }
    }
    if (record.state == TrackState::Lost) totals.lostReason = record.reason;
    totals.last = record;
  }
}

void RunSummary::end() {
  interruptedBy_ = interruptName();
}

std::string RunSummary::text() const {
  std::string text = fmt::format("{}: {}x{}, {:.4g} frames/s, frames {} to {}\n", info_.source, info_.frameSize.width,
                                 info_.frameSize.height, info_.fps, info_.firstFrame, lastFrame_);
  if (!interruptedBy_.empty()) text += fmt::format("interrupted by {} after {} frames\n", interruptedBy_, frames_);
  for (const std::string& target : info_.targets) {
    const auto found = totals_.find(target);
    if (found == totals_.end()) continue;
    const TargetTotals& totals = found->second;
    text += fmt::format("{}: {}\n", target, targetLine(totals));
    if (totals.updates == 0) continue;
    text += fmt::format("  {}; {}\n", lossLine(totals), endLine(totals.last));
    text += fmt::format("  {:.1f} ms a frame (median), {:.1f} ms (95 of 100)\n", quantile(totals.update_ms, 0.5),
                        quantile(totals.update_ms, 0.95));
  }
  return text;
}

}  // namespace host
