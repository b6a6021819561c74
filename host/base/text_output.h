// Text that must not get lost: every line is out before the next one is made, and a full disk is noticed.
#pragma once

#include <cstdio>
#include <string>

namespace host {

/// A text file, or standard output. Not thread-safe.
class TextOutput {
 public:
  /// @param path  "-": standard output. Replaces an existing file.
  /// @throws HostError (Usage) naming the path when it cannot be written
  explicit TextOutput(const std::string& path);
  ~TextOutput();
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;

  /// Writes `line` and a line feed and hands them to the system.
  /// @throws HostError (Output); a file then ends with the last whole line
  void writeLine(const std::string& line);
  const std::string& path() const { return path_; }

 private:
  void cutToCompleteLines_();

  std::string path_;
  std::FILE* file_;
  long complete_ = 0;  // bytes of whole lines
};

}  // namespace host
