// An output file that is there whole or not at all: written under another name beside it, renamed when it is complete.
#pragma once

#include <string>

namespace host {

/// One output of a command, from its declaration to its end. Until commit() a file of that name stays as it is,
/// whatever happens; without commit() nothing is left behind. A device or a pipe, and a file in a folder that takes no
/// new ones, is written in place. Symbolic links are followed. Not thread-safe.
class PendingFile {
 public:
  /// Makes the temporary file, so that what cannot be written is known before any work.
  /// @param path    the file as the user named it
  /// @param option  what names it in a complaint, such as "--report"
  /// @throws HostError (Usage) naming option, path and reason
  PendingFile(std::string path, std::string option);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  /// The file as the user named it.
  const std::string& path() const { return path_; }
  /// Where to write: a new, empty file in the same folder with the same ending; the path itself where that cannot be.
  const std::string& temporary() const { return temporary_; }
  /// Puts the file in its place; call it once it is written and closed. @throws HostError (Output)
  void commit();

 private:
  std::string path_;
  std::string option_;
  std::string target_;  // the path, links followed
  std::string temporary_;
  bool pending_ = false;  // temporary_ is another file than target_ and still there
};

/// Where writing to `path` ends up: symbolic links followed, also one that leads to a file that is not there yet. Not
/// for names that stand for an open file, such as /dev/stdout: those stay as they are.
std::string linksFollowed(const std::string& path);

/// Why a file cannot be made or opened, as a person would say it: of a missing folder its name, else the system's
/// words.
/// @param error  what errno said
std::string reasonOfFailure(const std::string& path, int error);

}  // namespace host
