#include "base/text_output.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/host_error.h"

namespace host {
namespace {

std::string shownName(const std::string& path) {
  return path == "-" ? "standard output" : "'" + path + "'";
}

[[noreturn]] void cannotWrite(const std::string& path, int reason) {
  throw HostError(ExitCode::Output, "cannot write to " + shownName(path) + ": " +
                                        (reason != 0 ? std::strerror(reason) : "the device took only a part"));
}

bool isRegular(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

/// Whether the name still leads to the file that was opened: another process may have removed it meanwhile.
bool isStill(const std::string& path, int file) {
  struct stat opened {};
  struct stat named {};
  return fstat(file, &opened) == 0 && stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

/// Opens a file without changing it. @param made  whether it was not there before
int openUnchanged(const std::string& path, bool& made) {
  constexpr mode_t kMode = 0666;
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
  made = file >= 0;
  return file >= 0 || errno != EEXIST ? file : open(path.c_str(), O_WRONLY | O_CLOEXEC);
}

}  // namespace

TextOutput::TextOutput(const std::string& path, const std::string& option) : path_(path) {
  if (path_ == "-") {
    file_ = stdout;
  } else {
    open_(option);
  }
}

void TextOutput::open_(const std::string& option) {
  const auto refuse = [&](const std::string& what) {
    throw HostError(ExitCode::Usage, option + " '" + path_ + "' " + what);
  };
  const std::string target = linksFollowed(path_);
  while (true) {
    const int file = openUnchanged(target, made_);
    if (file < 0) refuse(errno == EISDIR ? "is a folder" : "cannot be written: " + reasonOfFailure(target, errno));
    const bool regular = isRegular(file);
    if (regular && flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
      close(file);
      refuse("is being written by another process; wait for it or name another file");
    }
    if (!regular || isStill(target, file)) {
      file_ = fdopen(file, "w");
      if (file_ == nullptr) refuse(std::string("cannot be written: ") + std::strerror(errno));
      return;
    }
    close(file);
  }
}

TextOutput::~TextOutput() {
  if (file_ == stdout) return;
  if (made_ && !begun_) unlink(linksFollowed(path_).c_str());
  std::fclose(file_);
}

void TextOutput::writeLine(const std::string& line) {
  if (!begun_ && file_ != stdout && isRegular(fileno(file_)) && ftruncate(fileno(file_), 0) != 0) {
    cannotWrite(path_, errno);
  }
  begun_ = true;
  const std::string text = line + '\n';
  errno = 0;
  const bool written = std::fwrite(text.data(), 1, text.size(), file_) == text.size() && std::fflush(file_) == 0;
  if (written) {
    complete_ += static_cast<long>(text.size());
    return;
  }
  const int reason = errno;
  cutToCompleteLines_();
  cannotWrite(path_, reason);
}

/// Whoever reads the file afterwards finds whole lines only. Does nothing to a device or a pipe.
void TextOutput::cutToCompleteLines_() {
  if (file_ == stdout || !isRegular(fileno(file_))) return;
  if (ftruncate(fileno(file_), complete_) != 0) std::clearerr(file_);  // then a part of a line stays
}

WholeText::WholeText(const std::string& path, const std::string& option) {
  if (path != "-") file_.emplace(path, option);
}

void WholeText::write(const std::string& text) {
  std::FILE* file = file_ ? std::fopen(file_->temporary().c_str(), "wb") : stdout;
  const std::string path = file_ ? file_->path() : "-";
  if (file == nullptr) cannotWrite(path, errno);
  const std::string all = text + '\n';
  errno = 0;
  bool written = std::fwrite(all.data(), 1, all.size(), file) == all.size() && std::fflush(file) == 0;
  const int reason = errno;
  if (file != stdout && std::fclose(file) != 0) written = false;
  if (!written) cannotWrite(path, reason);
  if (file_) file_->commit();
}

}  // namespace host
