// What a call writes to standard output.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

/// Standard output goes to another file descriptor until the end of the scope.
class RedirectedOutput {
 public:
  explicit RedirectedOutput(int to) {
    std::fflush(stdout);
    before_ = dup(STDOUT_FILENO);
    dup2(to, STDOUT_FILENO);
  }
  ~RedirectedOutput() {
    std::fflush(stdout);
    dup2(before_, STDOUT_FILENO);
    close(before_);
  }
  RedirectedOutput(const RedirectedOutput&) = delete;
  RedirectedOutput& operator=(const RedirectedOutput&) = delete;

 private:
  int before_ = -1;
};

/// Everything that `call` writes. Check nothing inside: the complaint of a failed check would be swallowed.
inline std::string outputOf(const std::function<void()>& call) {
  std::FILE* file = std::tmpfile();
  {
    const RedirectedOutput redirected(fileno(file));
    call();
  }
  std::string text;
  std::rewind(file);
  for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) text += static_cast<char>(c);
  std::fclose(file);
  return text;
}

/// The messages of the plug-in that `call` writes, without the prefix; other lines come whole.
inline std::vector<std::string> logOf(const std::function<void()>& call) {
  static const std::string prefix = "[AlgoPlugin INFO] [CSRTTrackingAlgo] ";
  const std::string text = outputOf(call);
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string line = text.substr(start, end - start);
    lines.push_back(line.compare(0, prefix.size(), prefix) == 0 ? line.substr(prefix.size()) : line);
    start = end + 1;
  }
  return lines;
}

/// The first message that begins with `words`; empty when there is none.
inline std::string lineStarting(const std::vector<std::string>& lines, const std::string& words) {
  for (const std::string& line : lines) {
    if (line.compare(0, words.size(), words) == 0) return line;
  }
  return {};
}
