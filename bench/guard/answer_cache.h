// What the plug-in answered, kept between runs: a run that differs only in its guard need not compute it again.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "evaluation/follower.h"

namespace bench {

/// Answers by where the plug-in was started and by frame. After init() they depend on nothing that was before, so all
/// runs that start it on the same box of the same frame share them. Any thread.
/// A file of an older plug-in must be deleted: nothing here notices.
class AnswerCache {
 public:
  /// Reads the file, where there is one, and names it for save(); empty: no file.
  void load(const std::string& path);
  /// Writes all answers to the file that load() named.
  void save() const;

  std::optional<host::FollowerAnswer> find(const std::string& start, long frame) const;
  void put(const std::string& start, long frame, const host::FollowerAnswer& answer);

 private:
  std::string path_;
  std::map<std::string, std::map<long, host::FollowerAnswer>> runs_;
  mutable std::mutex mutex_;
};

}  // namespace bench
