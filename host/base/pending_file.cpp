#include "base/pending_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/host_error.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;           // as the system's own limit
constexpr std::size_t kLongEnding = 16;  // a longer one is part of a name

/// Names of files that are open already: a file beside them would be another one.
bool namesAnOpenFile(const std::string& path) {
  for (const char* name : {"/dev/stdin", "/dev/stdout", "/dev/stderr", "/dev/fd/", "/proc/"}) {
    if (path.rfind(name, 0) == 0) return true;
  }
  return false;
}

/// The permissions of a new file.
mode_t usualMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

/// What a person set for the earlier file holds for its successor.
void takeOver(int file, const struct stat& earlier) {
  const bool sameOwner = fchown(file, earlier.st_uid, earlier.st_gid) == 0;
  const mode_t mode = earlier.st_mode & (sameOwner ? 07777U : 0777U);
  if (fchmod(file, mode) != 0) return;  // then the new file is the user's alone: never more open than before
}

/// Hands what was written to the disk, so that a power cut behind the renaming finds it there.
int flushToDisk(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno;
  const int failed = fsync(file) != 0 && errno != EINVAL && errno != EROFS ? errno : 0;
  close(file);
  return failed;
}

}  // namespace

std::string linksFollowed(const std::string& path) {
  if (namesAnOpenFile(path)) return path;
  fs::path target(path);
  for (int i = 0; i < kMostLinks; ++i) {
    std::error_code failed;
    const fs::path next = fs::read_symlink(target, failed);
    if (failed) break;
    target = next.is_absolute() ? next : target.parent_path() / next;
    if (namesAnOpenFile(target.string())) return path;
  }
  return target.string();
}

std::string reasonOfFailure(const std::string& path, int error) {
  const fs::path folder = fs::path(path).parent_path();
  std::error_code ignored;
  if (error == ENOENT && !folder.empty() && !fs::exists(folder, ignored)) {
    return "there is no folder '" + folder.string() + "'";
  }
  return std::strerror(error);
}

PendingFile::PendingFile(std::string path, std::string option)
    : path_(std::move(path)), option_(std::move(option)), target_(linksFollowed(path_)), temporary_(target_) {
  struct stat earlier {};
  const bool exists = stat(target_.c_str(), &earlier) == 0;
  if (exists && S_ISDIR(earlier.st_mode)) throw HostError(ExitCode::Usage, option_ + " '" + path_ + "' is a folder");
  if (namesAnOpenFile(target_) || (exists && !S_ISREG(earlier.st_mode))) return;
  if (exists && access(target_.c_str(), W_OK) != 0) {
    throw HostError(ExitCode::Usage, option_ + " '" + path_ + "' cannot be written: " + std::strerror(errno));
  }
  const fs::path folder = fs::path(target_).parent_path();
  const std::string ending = fs::path(target_).extension().string();
  std::string name = (folder / ".csrt-track-XXXXXX").string() + (ending.size() <= kLongEnding ? ending : "");
  const int endingLength = ending.size() <= kLongEnding ? static_cast<int>(ending.size()) : 0;
  const int file = mkostemps(name.data(), endingLength, O_CLOEXEC);
  if (file < 0) {
    const int error = errno;
    if (exists && (error == EACCES || error == EPERM || error == EROFS)) return;  // in place is all that is left
    throw HostError(ExitCode::Usage,
                    option_ + " '" + path_ + "' cannot be written: " + reasonOfFailure(target_, error));
  }
  if (exists) {
    takeOver(file, earlier);
  } else if (fchmod(file, usualMode()) != 0) {
    std::perror("csrt-track: permissions");  // of a file made a moment ago
  }
  close(file);
  temporary_ = name;
  pending_ = true;
}

PendingFile::~PendingFile() {
  if (pending_) unlink(temporary_.c_str());
}

void PendingFile::commit() {
  if (!pending_) return;
  int error = flushToDisk(temporary_);
  if (error == 0 && std::rename(temporary_.c_str(), target_.c_str()) != 0) error = errno;
  if (error != 0) {
    throw HostError(ExitCode::Output, "cannot write to '" + path_ + "': " + std::strerror(error));
  }
  pending_ = false;
}

}  // namespace host
