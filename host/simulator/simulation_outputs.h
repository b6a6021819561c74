// What a simulated run leaves behind: records, the annotated video, a sheet of its moments, a clip with metadata.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/json_text.h"
#include "base/pending_file.h"
#include "base/text_output.h"
#include "picture/annotate.h"
#include "picture/picture_output.h"
#include "simulator/simulation.h"
#include "simulator/simulation_summary.h"

namespace host::sim {

/// The record of a call with two more members, "truth" and "camera".
nlohmann::ordered_json toJson(const SimulatedFrame& frame);

/// One JSON line per call.
class SimulationRecords : public SimulationObserver {
 public:
  SimulationRecords(const SimulatedCamera& camera, const std::string& path)
      : SimulationObserver(camera), output_(path, "--records") {}

 private:
  void seen(const SimulatedFrame& frame) override { output_.writeLine(jsonText(toJson(frame))); }

  TextOutput output_;
};

/// Adds the run up.
class SimulationTally : public SimulationObserver {
 public:
  using SimulationObserver::SimulationObserver;
  void begin(const RunInfo& /*info*/) override { summary_.begin(camera().scenario()); }
  SimulationTotals totals() const { return summary_.totals(); }

 private:
  void seen(const SimulatedFrame& frame) override { summary_.frame(frame); }

  SimulationSummary summary_;
};

/// Draws the gimbal's view and below it the whole scene: the view's outline, the target, the angles asked for.
class SimulationAnnotator {
 public:
  void begin(const Scenario& scenario, const Panorama& panorama);
  cv::Size size() const;                      ///< Of what draw() gives.
  cv::Mat draw(const SimulatedFrame& frame);  ///< Frames in order, each once.

 private:
  cv::Mat drawInset_(const SimulatedFrame& frame) const;
  cv::Point onInset_(const Angles& direction) const;

  Annotator annotator_;
  cv::Mat overview_;
  double tiltSpan_ = 60.0;
  cv::Size frame_;
};

/// The annotated video, and a sheet of the moments at which something changed.
class SimulationPictures : public SimulationObserver {
 public:
  /// @param video, sheet  paths; empty: not wanted. @throws HostError (Usage) when one cannot be written
  SimulationPictures(const SimulatedCamera& camera, const std::string& video, const std::string& sheet);
  void begin(const RunInfo& info) override;
  void end() override;

 private:
  void seen(const SimulatedFrame& frame) override;
  void keepMoment_(const SimulatedFrame& frame, const cv::Mat& picture);

  std::optional<PendingFile> videoFile_;
  std::optional<PendingFile> sheet_;
  SimulationAnnotator annotator_;
  std::optional<VideoOutput> video_;
  std::vector<cv::Mat> moments_;
  std::optional<TrackState> lastState_;
  cv::Mat last_;
  long waited_ = 0;
};

/// The plain video and its metadata, as `csrt-track track --metadata` reads them.
class SimulationClip : public RunObserver {
 public:
  /// @param video, metadata  paths; empty: not wanted. @throws HostError (Usage) when one cannot be written
  SimulationClip(const std::string& video, const std::string& metadata);
  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void end() override;

 private:
  std::optional<PendingFile> videoFile_;
  std::optional<VideoOutput> video_;
  std::optional<TextOutput> metadata_;
};

}  // namespace host::sim
