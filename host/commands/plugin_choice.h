// Which plug-in library a command loads: --plugin names a file, --engine one of the two that lie beside the program.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace host {

/// What the command line says about the plug-in to load.
struct PluginChoice {
  std::string path;    ///< --plugin; empty: not given.
  std::string engine;  ///< --engine: "opencv" or "fast"; empty: not given.
};

/// Adds --plugin and --engine to a command; `choice` must outlive it.
void addPluginOptions(CLI::App& command, PluginChoice& choice);

/// The file to load: the one named, else the engine's beside the program, else the default engine's; where only
/// OpenCV's is there and no engine was asked for, that one.
/// @throws HostError (Usage) for an unknown engine, and for a file that has another engine than the one asked for
std::string pathOf(const PluginChoice& choice);

}  // namespace host
