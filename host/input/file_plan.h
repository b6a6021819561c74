// Every file a command reads and writes, declared before any is opened, so that none is written over another.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace host {

/// Collects what a command will read and write, then check() compares. Two names are one file when device and inode are
/// the same, through symbolic and hard links; of a file that does not exist yet, when folder and name are. Terminals
/// and other devices may be named more than once. An empty path, and "-" that is no file, is passed over.
class FilePlan {
 public:
  /// @param role  what the user calls it: "the source", "--config"
  void reads(const std::string& role, const std::string& path);
  /// A source of frames: a file, or the pictures of a folder or pattern.
  void readsSource(const std::string& role, const std::string& source);
  /// A folder that must stay as it is: the files directly in it.
  void readsFolder(const std::string& role, const std::string& folder);
  /// @param option  such as "--records"; "-": standard output
  void writes(const std::string& option, const std::string& path);
  /// A folder in which nothing else may be written.
  void writesFolder(const std::string& option, const std::string& folder);

  /// @throws HostError (Usage) naming both options when an output is an input or another output
  void check() const;

 private:
  /// A file on the disk; of one that is not there yet, its folder and its name.
  struct Place {
    dev_t device = 0;
    ino_t inode = 0;
    std::string name;
    bool operator==(const Place& other) const {
      return device == other.device && inode == other.inode && name == other.name;
    }
  };
  struct Entry {
    std::string role;
    std::string path;
    Place place;
  };

  static bool tryFind_(const std::string& path, Place& place);
  static void add_(std::vector<Entry>& entries, const std::string& role, const std::string& path);

  std::vector<Entry> inputs_;
  std::vector<Entry> outputs_;
  std::vector<Entry> folders_;
};

}  // namespace host
