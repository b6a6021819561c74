#include "web/glance.h"

#include <fmt/format.h>

#include "plugin/reason_words.h"

namespace host::web {
namespace {

constexpr double kSearchShows_s = 2.0;  // searches come every so many frames; between them it is still searching

bool isSearch(const CallRecord& record) {
  return !record.search.empty() || (record.guard && record.guard->verdict.state == csrt_guard::State::Searching);
}

}  // namespace

const char* name(Standing standing) {
  switch (standing) {
    case Standing::Idle:
      return "idle";
    case Standing::Waiting:
      return "waiting";
    case Standing::Tracked:
      return "tracked";
    case Standing::Predicted:
      return "predicted";
    case Standing::Searching:
      return "searching";
    case Standing::Lost:
      return "lost";
    case Standing::NoSignal:
      return "no_signal";
  }
  return "idle";
}

void Glance::become_(Standing standing, double now) {
  if (standing != standing_) since_ = now;
  standing_ = standing;
}

void Glance::stop() {
  *this = {};
}

void Glance::take(const CallRecord& record, double now) {
  unseenS_ = record.secondsSinceSeen;
  if (record.noSignal) return become_(Standing::NoSignal, now);
  if (isSearch(record)) searchedAt_ = now;
  onTrial_ = record.state == TrackState::Reacquired && !isSeen(record);
  switch (record.state) {
    case TrackState::Waiting:
      return become_(Standing::Waiting, now);
    case TrackState::Tracked:
    case TrackState::Rebuilt:
    case TrackState::Redetected:
    case TrackState::Reacquired:
    case TrackState::Reseeded:
      why_.clear();
      refused_ = false;
      searchedAt_ = -1e9;
      return become_(onTrial_ ? Standing::Predicted : Standing::Tracked, now);
    case TrackState::Predicted:
      return become_(now - searchedAt_ < kSearchShows_s ? Standing::Searching : Standing::Predicted, now);
    case TrackState::Lost:
      why_ = explained(record.reason);
      refused_ = record.isInit;
      return become_(Standing::Lost, now);
    case TrackState::Inactive:
      break;
  }
  if (isSearch(record)) return become_(Standing::Searching, now);  // the guard looks for it
  if (record.isInit && !record.started) {
    why_ = explained(record.reason);
    refused_ = true;
    return become_(Standing::Lost, now);
  }
  if (standing_ != Standing::Idle) become_(Standing::Lost, now);  // it stays said until something else is chosen
}

std::string Glance::words() const {
  const std::string unseen = unseenS_ ? fmt::format("not seen for {:.1f} s", *unseenS_) : "never seen";
  switch (standing_) {
    case Standing::Idle:
      return "Nothing is followed";
    case Standing::Waiting:
      return "The camera is being pointed at it";
    case Standing::Tracked:
      return "Tracked";
    case Standing::Predicted:
      return (onTrial_ ? "Likely found, " : "Predicted, ") + unseen;
    case Standing::Searching:
      return "Searching, " + unseen;
    case Standing::Lost:
      return std::string(refused_ ? "Not started" : "Lost") + (why_.empty() ? "" : ": " + why_);
    case Standing::NoSignal:
      return "No signal";
  }
  return {};
}

}  // namespace host::web
