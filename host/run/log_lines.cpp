#include "run/log_lines.h"

#include <cstdio>

namespace host {

void showLogLines(const std::vector<std::string>& lines, const std::string& target) {
  const std::string head = target.empty() ? "" : target + ": ";
  for (const std::string& line : lines) std::fprintf(stderr, "%s%s\n", head.c_str(), line.c_str());
}

}  // namespace host
