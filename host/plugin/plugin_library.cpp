#include "plugin/plugin_library.h"

#include <class_loader/class_loader.hpp>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

#include "base/host_error.h"
#include "plugin/plugin_file.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr const char* kEngineMark = "csrt-tracking engine: ";  // what each plug-in holds, before its engine's name

fs::path programFolder() {
  std::error_code failed;
  const fs::path program = fs::read_symlink("/proc/self/exe", failed);
  return failed ? fs::current_path(failed) : program.parent_path();
}

/// The reason in one line: loader messages carry line feeds and the file's name more than once.
std::string oneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  }
  return text;
}

}  // namespace

std::string pluginFileOf(const std::string& engine) {
  return engine == kFastEngine ? "libcsrt_tracking_plugin_fast.so" : "libcsrt_tracking_plugin.so";
}

std::string engineOfFile(const std::string& path) {
  constexpr std::uintmax_t kLargest = 256U << 20;  // a device or a disk image has no engine either
  std::error_code failed;
  if (!fs::is_regular_file(path, failed) || fs::file_size(path, failed) > kLargest) return kUnknownEngine;
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  for (const char* engine : {kOpenCvEngine, kFastEngine}) {
    if (bytes.find(std::string(kEngineMark) + engine + "\n") != std::string::npos) return engine;
  }
  return kUnknownEngine;
}

std::string defaultPluginPath(const std::string& engine) {
  const fs::path folder = programFolder();
  const std::string file = pluginFileOf(engine);
  const std::vector<fs::path> candidates = {
      folder / file, folder.parent_path() / "lib" / file,      // a build folder
      folder.parent_path() / CSRT_PLUGIN_INSTALL_DIR / file};  // an installation, wherever it was moved to
  for (const fs::path& candidate : candidates) {
    std::error_code ignored;
    if (fs::exists(candidate, ignored)) return candidate.string();
  }
  return candidates.front().string();
}

PluginLibrary::PluginLibrary(const std::string& path)
    : path_(path.empty() ? defaultPluginPath(kDefaultEngine) : path), engine_(engineOfFile(path_)) {
  const std::string problem = problemOfPluginFile(path_);
  if (!problem.empty()) throw HostError(ExitCode::Plugin, "plug-in " + problem);
  try {
    // An absolute name: a bare one would send the loader through its own search path.
    loader_ = std::make_unique<class_loader::ClassLoader>(fs::absolute(path_).string(), false);
  } catch (const std::exception& e) {
    throw HostError(ExitCode::Plugin, "plug-in '" + path_ + "' cannot be loaded: " + oneLine(e.what()));
  }
  for (const std::string& name : loader_->getAvailableClasses<IAlgoPlugin>()) {
    if (name == kPluginClass) return;
  }
  throw HostError(ExitCode::Plugin, "'" + path_ + "' is a library without the plug-in class " + kPluginClass);
}

PluginLibrary::~PluginLibrary() = default;

std::shared_ptr<IAlgoPlugin> PluginLibrary::create() {
  try {
    return loader_->createUniqueInstance<IAlgoPlugin>(kPluginClass);  // the one name that all versions share
  } catch (const std::exception& e) {
    throw HostError(ExitCode::Plugin, "plug-in '" + path_ + "' cannot create its tracker: " + oneLine(e.what()));
  }
}

}  // namespace host
