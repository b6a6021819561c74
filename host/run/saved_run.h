// A run kept in a folder, so that somebody else can repeat it: every frame, what the camera said, configuration, calls
// and answers. `csrt-track replay` repeats it and compares.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/text_output.h"
#include "input/frame_source.h"
#include "input/metadata_file.h"
#include "run/run_observer.h"
#include "run/track_run.h"

namespace host {

/// Writes the folder while a run goes on: run.json (what was run), frames/ (lossless), metadata.jsonl, records.jsonl.
class RunSaver : public RunObserver {
 public:
  /// @param folder  is made; must be empty or not there. @throws HostError (Usage) when it cannot be made, is not
  ///                empty, or is being written by another process
  /// @param run     must outlive this; its configuration, targets, pace and guard are kept
  RunSaver(const std::string& folder, const TrackRun& run);
  /// A run in which no target was ever followed is no run to hand over: the folder is then left as it was found.
  ~RunSaver() override;

  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override;

 private:
  bool made_ = false;  // the folder was not there before
  bool hasResult_ = false;
  std::string folder_;
  const TrackRun& run_;
  std::optional<TextOutput> records_;
  std::optional<TextOutput> frames_;
};

/// The guard of a saved run, which holds no network.
struct SavedGuard {
  std::string which = "off";  ///< A word for --guard.
  std::string modelSha256;    ///< Of the network's file, 64 hexadecimal digits; empty: there was none.
};

/// A saved run, read back.
struct SavedRun {
  TrackRun run;          ///< Without the guard.
  SavedGuard guard;      ///< "off" where run.json, being older, names none.
  nlohmann::json about;  ///< run.json.
  std::vector<nlohmann::json> records;
  std::unique_ptr<FrameSource> frames;
};

/// @throws HostError (Source) naming the folder or file when it is no saved run or is damaged
SavedRun readSavedRun(const std::string& folder);

/// The first place where two records of a run differ, timings aside; empty when they say the same. Pure.
std::string firstDifference(const nlohmann::json& saved, const nlohmann::json& now);

}  // namespace host
