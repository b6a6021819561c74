// How a command of csrt-track fails: an exit code and one sentence that names the file or the value.
#pragma once

#include <stdexcept>
#include <string>

namespace host {

/// What csrt-track's exit status says; documented in `csrt-track --help`.
enum class ExitCode : int {
  Done = 0,
  Findings = 1,      ///< The command worked and found something to complain about.
  Usage = 2,         ///< Wrong option, or a value or file given with one that cannot be used.
  Source = 3,        ///< The source cannot be opened or has no frame.
  Plugin = 4,        ///< The plug-in cannot be loaded.
  NotStarted = 5,    ///< Tracking did not start.
  Output = 6,        ///< An output could not be written to its end, such as on a full disk.
  Interrupted = 130  ///< Stopped by a signal; everything written so far is complete.
};

/// Thrown anywhere in the host program, caught once in main(): one clear sentence, no final line feed.
class HostError : public std::runtime_error {
 public:
  HostError(ExitCode code, const std::string& sentence) : std::runtime_error(sentence), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace host
