// What a library prints on standard error by itself; a person gets our one sentence instead.
#pragma once

#include <string>

namespace host {

/// While it lives, everything written to standard error, by whatever way, is kept and not shown. For the main thread,
/// not nested, and only around a call that prints nothing of ours.
class CapturedStderr {
 public:
  CapturedStderr();
  ~CapturedStderr();
  CapturedStderr(const CapturedStderr&) = delete;
  CapturedStderr& operator=(const CapturedStderr&) = delete;

  /// What was written so far.
  std::string text() const;

 private:
  int before_ = -1;
  int kept_ = -1;  // a file in memory; -1: nothing is captured
};

}  // namespace host
