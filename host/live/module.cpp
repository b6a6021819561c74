#include "module.h"

#include <dlfcn.h>

#include <array>
#include <filesystem>
#include <system_error>

namespace live {
namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 2> kFiles = {"libcsrt_live_av.so", "libcsrt_live_gst.so"};

/// Where the file lies: a build folder or an installation, wherever it was moved to. Empty: nowhere.
std::string pathOf(const char* file) {
  std::error_code failed;
  const fs::path program = fs::read_symlink("/proc/self/exe", failed);
  if (failed) return {};
  const fs::path above = program.parent_path().parent_path();
  for (const fs::path& candidate : {above / "lib" / file, above / CSRT_LIVE_INSTALL_DIR / file}) {
    if (fs::exists(candidate, failed)) return candidate.string();
  }
  return {};
}

FoundModule load(const std::string& path) {
  FoundModule found;
  found.path = path;
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* const why = dlerror();
    found.fault = why == nullptr ? "it cannot be loaded" : why;
    return found;
  }
  const auto entry = reinterpret_cast<CsrtLiveModuleEntry>(dlsym(library, "csrt_live_module"));
  if (entry != nullptr) found.module = entry(kModuleVersion);
  if (found.module == nullptr) found.fault = "it belongs to another version of csrt-track";
  return found;
}

bool prefersAv(AddressKind kind) {
  return kind == AddressKind::Udp || kind == AddressKind::Http || kind == AddressKind::Sdp ||
         kind == AddressKind::Stdin;
}

}  // namespace

const std::vector<FoundModule>& modules() {
  static const std::vector<FoundModule> kAll = [] {
    std::vector<FoundModule> all;
    for (const char* const file : kFiles) {
      const std::string path = pathOf(file);
      if (!path.empty()) all.push_back(load(path));
    }
    return all;
  }();
  return kAll;
}

Module* moduleFor(AddressKind kind, std::string& fault) {
  Module* chosen = nullptr;
  for (const FoundModule& found : modules()) {
    if (found.module == nullptr) {
      fault = "'" + found.path + "' cannot be used: " + found.fault;
    } else if (found.module->receives(kind) && (chosen == nullptr || !prefersAv(kind))) {
      chosen = found.module;  // the list begins with libavformat
    }
  }
  if (chosen == nullptr && fault.empty()) {
    fault = std::string("nothing here receives a live source of the kind ") + name(kind) +
            "; install the package csrt-track-live";
  }
  return chosen;
}

}  // namespace live
