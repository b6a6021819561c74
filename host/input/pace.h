// Which time a plug-in's rules in seconds see, and how fast frames come.
#pragma once

#include <chrono>
#include <string>

namespace host {

/// How fast frames are handed over, and which time the plug-in sees meanwhile.
enum class Pace {
  Fast,    ///< Frames come as fast as they are worked on; rules in seconds see the machine's speed.
  Source,  ///< Frames come at the source's rate; rules in seconds see what they see live. Takes as long as the clip.
  Video    ///< As fast as Fast, but the plug-in's clock shows the frames' own times: the same answers on every machine.
};

/// @throws HostError (Usage) for a word that is none of fast, source, video
Pace paceOf(const std::string& word);
/// The word that paceOf() reads.
const char* name(Pace pace);

/// Holds the reader back to the source's own rate. Not thread-safe.
class PaceKeeper {
 public:
  explicit PaceKeeper(bool on) : on_(on) {}
  /// Returns when a frame of that time is due; the first one at once, and all when a signal asked to stop.
  void wait(double time_s);

 private:
  bool on_;
  bool begun_ = false;
  std::chrono::steady_clock::time_point begin_;
};

}  // namespace host
