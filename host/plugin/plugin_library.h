// The plug-in as a foreign host gets it: by file name, through class_loader, never linked.
#pragma once

#include <memory>
#include <string>

#include "ialgo_plugin.h"

namespace class_loader {
class ClassLoader;
}

namespace host {

/// The class a tracking plug-in registers under the base "IAlgoPlugin".
inline constexpr const char* kPluginClass = "CSRTTrackingAlgo";

/// One loaded plug-in library. Objects made by create() must be gone before the library is.
class PluginLibrary {
 public:
  /// @param path  the shared library; empty: defaultPluginPath()
  /// @throws HostError (Plugin) naming the file and the loader's reason
  explicit PluginLibrary(const std::string& path);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  /// A new tracker object. Any thread. @throws HostError (Plugin) when the library does not offer the class
  std::shared_ptr<IAlgoPlugin> create();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::unique_ptr<class_loader::ClassLoader> loader_;
};

/// Where the plug-in is looked for when no path is given: beside the program, in the build folder's lib, where it is
/// installed. The first that exists, else the first.
std::string defaultPluginPath();

}  // namespace host
