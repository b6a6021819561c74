#include "base/text_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

#include "base/host_error.h"
#include "base/pending_file.h"

namespace host {

// Far more than any truth or result; a device without an end would else fill the memory.
constexpr std::size_t kLargestText = 256U << 20U;

std::string readTextFile(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw HostError(ExitCode::Usage, "'" + path + "' is a folder");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw HostError(ExitCode::Usage, "cannot read '" + path + "': " + reasonOfFailure(path, errno));
  std::string text;
  std::vector<char> part(1U << 16U);
  while (file.read(part.data(), static_cast<std::streamsize>(part.size())) || file.gcount() > 0) {
    text.append(part.data(), static_cast<std::size_t>(file.gcount()));
    if (text.size() > kLargestText) {
      throw HostError(ExitCode::Usage, "'" + path + "' is no text file: it is larger than 256 MiB");
    }
  }
  if (file.bad()) throw HostError(ExitCode::Usage, "cannot read '" + path + "': " + std::strerror(errno));
  if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);  // a byte-order mark, which some editors leave
  if (text.rfind("\xFF\xFE", 0) == 0 || text.rfind("\xFE\xFF", 0) == 0) {
    throw HostError(ExitCode::Usage, "'" + path + "' is written in UTF-16; save it as UTF-8");
  }
  return text;
}

}  // namespace host
