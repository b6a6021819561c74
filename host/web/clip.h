// A video of the pictures that viewers were shown within the last minute, with what was known drawn into them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "plugin/call_record.h"

namespace host::web {

/// A picture that was encoded for a viewer.
struct WatchedFrame {
  long index = 0;
  double at = 0.0;  ///< Seconds of a clock that never goes back.
  std::shared_ptr<const std::string> jpeg;
  std::shared_ptr<const std::vector<CallRecord>> records;
};

/// Frames a second of a clip in which they play as fast as they were shown, in [1, 120]. Pure.
double rateOf(const std::vector<WatchedFrame>& frames);

/// The clip as an MP4 file's content, made with low priority in a thread of its own. @param frames  at least one
/// @throws HostError (Output, Usage) when no video can be written
std::string clipOf(const std::vector<WatchedFrame>& frames);

}  // namespace host::web
