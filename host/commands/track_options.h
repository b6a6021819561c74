// The options of `track`, and what is wrong with them.
#pragma once

#include <string>
#include <vector>

#include "commands/live_options.h"
#include "commands/plugin_choice.h"
#include "commands/run_options.h"
#include "config/config_text.h"
#include "input/frame_source.h"

namespace CLI {
class App;
}

namespace host {

/// As the command line names them; a path or text that is empty was not given.
struct TrackOptions {
  SourceOptions source;              ///< The source, and which part of it.
  LiveTrackOptions live;             ///< What only live sources have.
  std::vector<std::string> boxes;    ///< For parseTargetOptions(), as the next.
  std::vector<std::string> points;   ///< --point, as it was written; instead of a box.
  ConfigOptions config;              ///< --preset, --config, --set.
  std::string metadata;              ///< --metadata; empty: none.
  std::string records;               ///< --records; "-": standard output; empty: none.
  std::string video;                 ///< --video; empty: none.
  std::string still;                 ///< --still; empty: none.
  PluginChoice plugin;               ///< --plugin, --engine.
  std::string pace = kDefaultPace;   ///< --pace; a word for paceOf().
  GuardOptions guard;                ///< --guard, --guard-model.
  std::string report;                ///< --report; empty: none.
  std::string truth;                 ///< --truth; empty: none.
  std::string truthFormat = "auto";  ///< --format; a word for truthFormatOf().
  long firstNumber = 1;              ///< --first-number; see TruthOptions.
  std::string saveRun;               ///< --save-run, a folder; empty: none.
  std::string klvOut;                ///< --klv-out; empty: none.
  std::string stream;                ///< --stream, an address; empty: none.
  std::string recordDir;             ///< --record-dir, a folder; empty: none.
  std::string recordQuota = "10G";   ///< --record-quota, as it was written.
  int threads = 1;                   ///< --threads; targets worked on at a time.
  bool debug = false;                ///< --debug: the plug-in's own log is shown.
  bool quiet = false;                ///< --quiet: no progress and no summary.
  bool show = false;                 ///< --show: a window.
  bool strict = false;               ///< --strict: faults of the source make the run fail.
};

/// Adds all of them to the command; `options` must outlive it.
void addTrackOptions(CLI::App& command, TrackOptions& options);

/// @throws HostError (Usage) for options that contradict one another, lack one, or cannot be read
void checkTrackOptions(const TrackOptions& options);

/// @throws HostError (Usage) for an output that is an input or another output
void checkTrackFiles(const TrackOptions& options);

}  // namespace host
