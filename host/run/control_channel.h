// Commands while a run goes on: lines from standard input or from a socket of this machine, each with one line back.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace host {

/// One line that came, and the way back.
struct ControlLine {
  std::string text;                                ///< Without its line feed.
  std::function<void(const std::string&)> answer;  ///< Sends one line; never waits. A reader that is gone is no error.
};

/// Where commands come from. Used by one thread; nothing here ever waits.
class ControlChannel {
 public:
  /// @param place  "-": standard input, answers go to standard error. Else the path of a Unix socket of mode 0600,
  ///               made here and removed at the end; one that an ended run left behind is replaced.
  /// @throws HostError (Usage) naming the path where it cannot be made or another run answers there
  explicit ControlChannel(const std::string& place);
  ~ControlChannel();
  ControlChannel(const ControlChannel&) = delete;
  ControlChannel& operator=(const ControlChannel&) = delete;

  /// The whole lines that have come since.
  std::vector<ControlLine> take();

 private:
  struct Peer;
  void accept_();
  static bool tryRead_(Peer& peer, std::vector<ControlLine>& lines, const std::shared_ptr<Peer>& self);

  std::string path_;
  int listening_ = -1;
  std::vector<std::shared_ptr<Peer>> peers_;
};

}  // namespace host
