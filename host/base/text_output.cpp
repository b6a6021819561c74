#include "base/text_output.h"

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

}  // namespace

TextOutput::TextOutput(const std::string& path)
    : path_(path), file_(path == "-" ? stdout : std::fopen(path.c_str(), "w")) {
  if (file_ == nullptr) throw HostError(ExitCode::Usage, "cannot write '" + path + "': " + std::strerror(errno));
}

TextOutput::~TextOutput() {
  if (file_ != stdout) std::fclose(file_);
}

void TextOutput::writeLine(const std::string& line) {
  const std::string text = line + '\n';
  errno = 0;
  const bool written = std::fwrite(text.data(), 1, text.size(), file_) == text.size() && std::fflush(file_) == 0;
  if (written) {
    complete_ += static_cast<long>(text.size());
    return;
  }
  const int reason = errno;
  cutToCompleteLines_();
  throw HostError(ExitCode::Output, "cannot write to " + shownName(path_) + ": " +
                                        (reason != 0 ? std::strerror(reason) : "the device took only a part"));
}

/// Whoever reads the file afterwards finds whole lines only. Does nothing to a device or a pipe.
void TextOutput::cutToCompleteLines_() {
  struct stat status {};
  if (file_ == stdout || fstat(fileno(file_), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (ftruncate(fileno(file_), complete_) != 0) std::clearerr(file_);  // then a part of a line stays
}

}  // namespace host
