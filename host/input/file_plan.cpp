#include "input/file_plan.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "base/host_error.h"
#include "base/pending_file.h"
#include "input/frame_source.h"

namespace host {
namespace {

namespace fs = std::filesystem;

bool isFolder(const std::string& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

std::string folderOf(const std::string& path) {
  const std::string folder = fs::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

/// Whether `path` lies somewhere below `folder`, links followed; neither needs to exist.
bool liesIn(const std::string& path, const std::string& folder) {
  std::error_code failed;
  const fs::path inner = fs::weakly_canonical(fs::absolute(path, failed), failed);
  const fs::path outer = fs::weakly_canonical(fs::absolute(folder, failed), failed) / "";
  if (failed) return false;
  const fs::path relative = inner.lexically_relative(outer);
  return !relative.empty() && *relative.begin() != ".." && *relative.begin() != ".";
}

[[noreturn]] void refuse(const std::string& option, const std::string& path, const std::string& what) {
  throw HostError(ExitCode::Usage, option + " '" + path + "' " + what + "; name another file");
}

}  // namespace

bool FilePlan::tryFind_(const std::string& path, Place& place) {
  struct stat status {};
  const std::string target = linksFollowed(path);
  const bool found = path == "-" ? fstat(STDOUT_FILENO, &status) == 0 : stat(target.c_str(), &status) == 0;
  if (found) {
    const bool isDevice = S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
    if (isDevice || (path == "-" && !S_ISREG(status.st_mode))) return false;
    place = {status.st_dev, status.st_ino, {}};
    return true;
  }
  if (path == "-") return false;
  if (stat(folderOf(target).c_str(), &status) == 0) {
    place = {status.st_dev, status.st_ino, fs::path(target).filename().string()};
    return true;
  }
  std::error_code failed;  // in a folder that is to be made
  place = {0, 0, fs::weakly_canonical(fs::absolute(target, failed), failed).string()};
  return !failed;
}

void FilePlan::add_(std::vector<Entry>& entries, const std::string& role, const std::string& path) {
  Place place;
  if (!path.empty() && tryFind_(path, place)) entries.push_back({role, path, place});
}

void FilePlan::reads(const std::string& role, const std::string& path) {
  add_(inputs_, role, path);
}

void FilePlan::readsFolder(const std::string& role, const std::string& folder) {
  std::error_code failed;
  for (fs::directory_iterator it(folder, failed), end; !failed && it != end; it.increment(failed)) {
    add_(inputs_, role, it->path().string());
  }
}

void FilePlan::readsSource(const std::string& role, const std::string& source) {
  for (const std::string& picture : picturesOfSource(source)) add_(inputs_, role, picture);
  if (!isFolder(source)) add_(inputs_, role, source);
}

void FilePlan::writes(const std::string& option, const std::string& path) {
  add_(outputs_, option, path);
}

void FilePlan::writesFolder(const std::string& option, const std::string& folder) {
  if (folder.empty()) return;
  add_(outputs_, option, folder);
  folders_.push_back({option, folder, {}});
}

void FilePlan::check() const {
  for (auto output = outputs_.begin(); output != outputs_.end(); ++output) {
    const auto isSame = [&output](const Entry& other) { return other.place == output->place; };
    const auto input = std::find_if(inputs_.begin(), inputs_.end(), isSame);
    if (input != inputs_.end()) {
      refuse(output->role, output->path, "is the same file as " + input->role + " '" + input->path + "'");
    }
    const auto other = std::find_if(output + 1, outputs_.end(), isSame);
    if (other != outputs_.end()) {
      refuse(other->role, other->path, "is the same file as " + output->role + " '" + output->path + "'");
    }
    for (const Entry& folder : folders_) {
      if (folder.role == output->role || output->path == "-" || !liesIn(output->path, folder.path)) continue;
      refuse(output->role, output->path, "lies in the folder of " + folder.role + " '" + folder.path + "'");
    }
  }
}

}  // namespace host
