// The plug-in writes its log lines to standard output; the host needs them as data and standard output for itself.
#pragma once

#include <string>
#include <vector>

namespace host {

/// Puts the process's C stream `stdout` behind a stream of ours, once. Afterwards a line that a thread writes during
/// its own LogCapture belongs to that capture; everything else reaches standard output unchanged and at once.
/// Must be called before a plug-in is driven; later calls do nothing. Any thread.
void installLogCapture();

/// Collects what this thread writes to `stdout` between construction and lines(). Not nestable.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The lines so far without their line feeds; a last line without one counts too.
  std::vector<std::string> lines() const;

 private:
  std::string text_;
};

}  // namespace host
