// Who is compared: the plug-in with every preset and guard, bare trackers, and a network where there is one.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "evaluation/follower.h"
#include "plugin/plugin_library.h"

namespace bench {

/// One of them.
struct Contestant {
  std::string name;    ///< On the command line: "plugin", "robust", "robust/colour", "csrt", ...
  std::string words;   ///< In the table.
  std::string engine;  ///< The plug-in's, as Engine::name; empty: it needs no plug-in.
  /// @param library  the loaded plug-in of `engine`; null where that is empty
  std::function<std::unique_ptr<host::Follower>(host::PluginLibrary* library)> make;
};

/// What the command line says about them.
struct ContestantOptions {
  std::vector<std::string> engines;  ///< Of the plug-in; with more than one, names end in "@ENGINE".
  std::vector<std::string> guards = {"off", "colour"};
  std::vector<std::string> names;  ///< Empty: all.
  std::string model;               ///< Of the network; empty: it is left out.
};

/// Those chosen, in the order of their names or of the table.
/// @throws HostError (Usage) for an unknown name or guard, and where there is a model but nothing that could run it
std::vector<Contestant> contestantsOf(const ContestantOptions& options);

}  // namespace bench
