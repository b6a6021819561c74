// How a target is doing, in one word and one sentence that a person can trust.
#pragma once

#include <optional>
#include <string>

#include "plugin/call_record.h"

namespace host::web {

/// What a person tells apart at a glance.
enum class Standing {
  Idle,       ///< Nothing is followed.
  Waiting,    ///< The camera is being pointed first.
  Tracked,    ///< Seen in this frame.
  Predicted,  ///< Not seen; the box is moved on by the last motion, or is a find on trial.
  Searching,  ///< Not seen, and looked for in the whole picture.
  Lost,       ///< Given up, or never started.
  NoSignal    ///< No picture comes.
};

/// "idle", "waiting", "tracked", "predicted", "searching", "lost", "no_signal".
const char* name(Standing standing);

/// What is remembered about one target from call to call, and what is said about it.
class Glance {
 public:
  /// Takes what a call came to. @param now  seconds of a clock that never goes back
  void take(const CallRecord& record, double now);
  /// Somebody asked for it to be followed no longer.
  void stop();

  Standing standing() const { return standing_; }
  /// For how long it has stood so, seconds.
  double since(double now) const { return now - since_; }
  /// Such as "Predicted, not seen for 1.2 s" or "Lost: it left the picture". No full stop.
  std::string words() const;
  /// Why it was lost, in plain English; empty: it was not, or nobody knows.
  const std::string& why() const { return why_; }

 private:
  void become_(Standing standing, double now);

  Standing standing_ = Standing::Idle;
  double since_ = 0.0;
  double searchedAt_ = -1e9;
  std::optional<double> unseenS_;
  std::string why_;
  bool onTrial_ = false;  ///< The guard found something of late that may be it.
  bool refused_ = false;
};

}  // namespace host::web
