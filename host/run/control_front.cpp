#include "run/control_front.h"

namespace host {
namespace {

/// The run catches up by itself: the channel only finds the frame.
KeptFrames withoutLater(KeptFrames kept) {
  kept.after = {};
  return kept;
}

}  // namespace

ControlFront::ControlFront(const std::string& place, const KeptFrames& kept)
    : steering_(
          place, withoutLater(kept), [](std::size_t, double) { return std::vector<std::size_t>{}; }, nullptr) {}

void ControlFront::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  last_ = frame;
  records_ = records;
}

void ControlFront::silence(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  last_ = frame;
  records_ = records;
}

std::vector<FrontCommand> ControlFront::takeCommands() {
  const Steering wish = steering_.after(last_, records_);
  if (wish.stop) {
    FrontCommand end;
    end.kind = FrontCommand::Kind::End;
    return {end};
  }
  if (!wish.restart) return {};
  FrontCommand start;
  start.kind = FrontCommand::Kind::Box;
  start.box = *wish.restart;
  start.frame = wish.on ? wish.on->index : last_.index;
  start.answer = [this](const FrontAnswer& answer) {
    CallRecord record = answer.record.value_or(CallRecord());
    if (!answer.record) record.reason = answer.why;
    steering_.haveCaughtUp(answer.caughtUp);
    steering_.restarted(record);
  };
  return {start};
}

}  // namespace host
