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

/// What follows the target inside a plug-in: OpenCV's tracker, or the engine that gives the same boxes in less time.
inline constexpr const char* kOpenCvEngine = "opencv";
inline constexpr const char* kFastEngine = "fast";
inline constexpr const char* kUnknownEngine = "unknown";  ///< Of a plug-in that does not say.
inline constexpr const char* kDefaultEngine = kOpenCvEngine;

/// One loaded plug-in library. Objects made by create() must be gone before the library is.
class PluginLibrary {
 public:
  /// @param path  the shared library; empty: the default engine's, where defaultPluginPath() finds it
  /// @throws HostError (Plugin) naming the file and the loader's reason
  explicit PluginLibrary(const std::string& path);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  /// A new tracker object. Any thread. @throws HostError (Plugin) when the library does not offer the class
  std::shared_ptr<IAlgoPlugin> create();
  const std::string& path() const { return path_; }
  const std::string& engine() const { return engine_; }  ///< "opencv", "fast" or "unknown".

 private:
  std::string path_;
  std::string engine_;
  std::unique_ptr<class_loader::ClassLoader> loader_;
};

/// Where the plug-in of an engine is looked for when no path is given: beside the program, in the build folder's lib,
/// where it is installed. The first that exists, else the first.
std::string defaultPluginPath(const std::string& engine);

/// The file's name, without a folder, of the plug-in with an engine.
std::string pluginFileOf(const std::string& engine);

/// Which engine is in a plug-in, read from the file without loading it; "unknown" where it does not say or cannot be
/// read.
std::string engineOfFile(const std::string& path);

}  // namespace host
