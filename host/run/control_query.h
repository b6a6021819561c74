// Asks running programs through their control sockets, several at once, and never longer than a limit.
#pragma once

#include <string>
#include <vector>

namespace host {

/// What came of asking one socket.
struct ControlReply {
  enum class Kind {
    Answered,  ///< `line` holds the answer.
    Stale,     ///< A socket that nobody listens at: its run ended without removing it.
    Silent,    ///< Somebody listens, and no whole line came within the limit.
    Closed,    ///< The other side closed the connection without an answer.
    TooLong,   ///< More came than an answer has.
    Failed     ///< It cannot be reached; `reason` has the system's words.
  };
  Kind kind = Kind::Failed;
  std::string line;    ///< Without its line feed.
  std::string reason;  ///< A sentence's end for a person: what is the matter. Empty when answered.
};

/// Sends `line` and a line feed to every socket at the same time and waits for one line back from each.
/// @param paths   Unix sockets; what is no socket is answered as Failed
/// @param limitS  longest time for all of them together, seconds, > 0
/// @return        as many replies, in the same order. Throws nothing; any thread.
std::vector<ControlReply> askControls(const std::vector<std::string>& paths, const std::string& line, double limitS);

}  // namespace host
