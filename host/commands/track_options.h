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
  SourceOptions source;
  LiveTrackOptions live;
  std::vector<std::string> boxes;  ///< For parseTargetOptions(), as the next.
  std::vector<std::string> points;
  ConfigOptions config;
  std::string metadata;
  std::string records;
  std::string video;
  std::string still;
  PluginChoice plugin;
  std::string pace = kDefaultPace;
  std::string guard = "off";
  std::string report;
  std::string truth;
  std::string truthFormat = "auto";
  long firstNumber = 1;
  std::string saveRun;
  std::string klvOut;
  std::string stream;
  std::string recordDir;
  std::string recordQuota = "10G";
  int threads = 1;
  bool debug = false;
  bool quiet = false;
  bool show = false;
  bool strict = false;
};

/// Adds all of them to the command; `options` must outlive it.
void addTrackOptions(CLI::App& command, TrackOptions& options);

/// @throws HostError (Usage) for options that contradict one another, lack one, or cannot be read
void checkTrackOptions(const TrackOptions& options);

/// @throws HostError (Usage) for an output that is an input or another output
void checkTrackFiles(const TrackOptions& options);

}  // namespace host
