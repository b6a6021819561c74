#include "text_output.h"

#include <cerrno>
#include <cstring>

#include "host_error.h"

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
  if (written) return;
  throw HostError(ExitCode::Output, "cannot write to " + shownName(path_) + ": " +
                                        (errno != 0 ? std::strerror(errno) : "the device took only a part"));
}

}  // namespace host
