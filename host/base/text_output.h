// Text that must not get lost: lines that are out before the next one is made, or a whole text that replaces its
// predecessor in one step. A full disk is noticed.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "base/pending_file.h"

namespace host {

/// A text file that grows line by line and can be read meanwhile, or standard output. What an earlier run left in the
/// file stays until the first line; a file that gets no line is not left behind. One process at a time may write it.
/// Not thread-safe.
class TextOutput {
 public:
  /// @param path    "-": standard output
  /// @param option  what names it in a complaint, such as "--records"
  /// @throws HostError (Usage) naming both when it cannot be written, or when another process is writing it
  TextOutput(const std::string& path, const std::string& option);
  ~TextOutput();
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;

  /// Writes `line` and a line feed and hands them to the system.
  /// @throws HostError (Output); a file then ends with the last whole line
  void writeLine(const std::string& line);
  const std::string& path() const { return path_; }

 private:
  void open_(const std::string& option);
  void cutToCompleteLines_();

  std::string path_;
  std::FILE* file_ = nullptr;
  bool made_ = false;   // the file was not there before
  bool begun_ = false;  // the first line is out
  long complete_ = 0;   // bytes of whole lines
};

/// A text that is written at once, or standard output. Until then a file of that name stays as it is.
class WholeText {
 public:
  /// @param path    "-": standard output
  /// @throws HostError (Usage) as PendingFile
  WholeText(const std::string& path, const std::string& option);

  /// Writes the text and a line feed; call it once. @throws HostError (Output) naming the path
  void write(const std::string& text);

 private:
  std::optional<PendingFile> file_;  // empty: standard output
};

}  // namespace host
