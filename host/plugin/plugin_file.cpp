#include "plugin/plugin_file.h"

#include <elf.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>

namespace host {
namespace {

namespace fs = std::filesystem;

std::string processorName(unsigned machine) {
  static const std::map<unsigned, const char*> kNames{
      {EM_X86_64, "amd64"}, {EM_AARCH64, "arm64"}, {EM_386, "i386"}, {EM_ARM, "arm"}};
  const auto known = kNames.find(machine);
  return known != kNames.end() ? known->second : fmt::format("processor {}", machine);
}

Elf64_Ehdr headerOf(const std::string& path) {
  Elf64_Ehdr header{};
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof header);
  return header;
}

/// Where the last part that the header and the program headers speak of ends, bytes.
std::uint64_t endOf(const std::string& path, const Elf64_Ehdr& header) {
  std::uint64_t end = header.e_shoff + std::uint64_t{header.e_shentsize} * header.e_shnum;
  std::ifstream file(path, std::ios::binary);
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr part{};
    file.seekg(static_cast<std::streamoff>(header.e_phoff + std::uint64_t{i} * header.e_phentsize));
    if (!file.read(reinterpret_cast<char*>(&part), sizeof part)) break;  // the sections behind say it
    if (part.p_type == PT_LOAD) end = std::max(end, part.p_offset + part.p_filesz);
  }
  return end;
}

std::string problemOfElf(const std::string& path, const Elf64_Ehdr& header) {
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
    return fmt::format("'{}' is not a library at all; install the package csrt-tracking-plugin anew", path);
  }
  const unsigned own = headerOf("/proc/self/exe").e_machine;
  if (header.e_machine != own) {
    return fmt::format("'{}' was built for {}, this machine is {}; install the package of this machine", path,
                       processorName(header.e_machine), processorName(own));
  }
  if (header.e_type != ET_DYN) {
    return fmt::format("'{}' is an object file or a program, not a shared library; name libcsrt_tracking_plugin.so",
                       path);
  }
  const std::uint64_t end = endOf(path, header);
  if (fs::file_size(path) < end) {
    return fmt::format("'{}' is cut short at {} of {} bytes; copy or install it again", path, fs::file_size(path), end);
  }
  return {};
}

}  // namespace

std::string problemOfPluginFile(const std::string& path) {
  std::error_code failed;
  const fs::file_status status = fs::status(path, failed);
  if (!fs::exists(status)) {
    return fmt::format("'{}' does not exist; install the package csrt-tracking-plugin or name the file with --plugin",
                       path);
  }
  if (fs::is_directory(status)) return fmt::format("'{}' is a folder; name the library in it with --plugin", path);
  if (!fs::is_regular_file(status))
    return fmt::format("'{}' is not a regular file; name the library with --plugin", path);
  if (access(path.c_str(), R_OK) != 0) {
    return fmt::format("'{}' may not be read by this user (permission denied); chmod a+r it or run as its owner", path);
  }
  if (fs::file_size(path) == 0) return fmt::format("'{}' is empty; copy or install it again", path);
  return problemOfElf(path, headerOf(path));
}

}  // namespace host
