// What the command line of guard_comparison says.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "answer_cache.h"
#include "footage.h"
#include "plugin/plugin_library.h"
#include "walk.h"

namespace bench {

struct GuardOptions {
  std::string clip, truth;
  std::string second, secondTruth;      ///< Another sequence with one target; empty: none.
  std::string half = "developed";       ///< Of the walkers: developed, held-back or all.
  std::string only;                     ///< One target's name; empty: all of the half.
  std::vector<int> starts = {0, 1, 2};  ///< So many marks after the first one.
  std::vector<std::string> presets = {""};
  std::vector<std::string> guards = {"off", "colour"};
  std::string guardModel;                            ///< The network's file, for the guard "network".
  std::map<std::string, host::GuardChoice> choices;  ///< Of all `guards`.
  std::vector<std::string> engines;  ///< Empty: the plug-in that --plugin names, or the default engine's.
  std::string plugin;
  std::vector<std::string> scenarios = {"honesty", "lookalikes"};
  std::string cache, json;
  int threads = 2;
  bool perTarget = false, trace = false;
  FootageOptions footage;
};

/// A plug-in and what it is called in the tables. Two of them are never loaded at once: both register the same class.
struct Engine {
  std::string name;
  std::string path;
};

/// Those that the options name, in their order.
std::vector<Engine> enginesOf(const GuardOptions& options);

/// The targets of the half that the options name, fitted to the footage.
std::vector<host::TruthTarget> targetsOf(const GuardOptions& options, const Footage& footage);

/// One walk for every engine, preset, guard, start and target, in this order; not yet followed. All must outlive it.
std::vector<Walk> walksOf(const GuardOptions& options, const std::vector<Engine>& engines, const Footage& footage,
                          const std::vector<host::TruthTarget>& targets);

/// "defaults" for the preset without a name.
std::string presetWord(const std::string& preset);

/// Follows every walk, engine after engine. @param trace  see follow()
void followAll(std::vector<Walk>& walks, const std::vector<Engine>& engines, const GuardOptions& options,
               AnswerCache& cache, const std::vector<host::TruthTarget>& trace);

/// Work of all indices below `count`, by several threads. Throws on what one of them threw.
void inThreads(int threads, std::size_t count, const std::function<void(std::size_t)>& work);

// The commands. Each prints a table, and writes it to options.json where that is given.
void compareWalkers(const GuardOptions& options, AnswerCache& cache);
void compareSequences(const GuardOptions& options, AnswerCache& cache);
void compareLosses(const GuardOptions& options, AnswerCache& cache);
void compareScenes(const GuardOptions& options);
void judgeFinds(const GuardOptions& options);

}  // namespace bench
