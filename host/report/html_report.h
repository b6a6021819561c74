// One file that shows how a run went, in any browser, without a network: charts, events, pictures.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/text_output.h"
#include "evaluation/metrics.h"
#include "evaluation/truth.h"
#include "picture/annotate.h"
#include "run/run_observer.h"

namespace host {

/// Watches a run and writes the report at its end, also after an interrupt; not when no target was ever followed.
class HtmlReport : public RunObserver {
 public:
  /// @param path   the file to write. @throws HostError (Usage) when it cannot be written
  /// @param truth  may be empty; a target of the run is judged by the truth of the same name, or by the only one there
  /// is
  HtmlReport(const std::string& path, std::vector<TruthTarget> truth);

  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override;
  void end() override;

 private:
  struct Target {
    nlohmann::ordered_json frames = nlohmann::ordered_json::array();
    nlohmann::ordered_json events = nlohmann::ordered_json::array();
    std::string lastState;
    std::string lastGuard;   ///< The guard's state; empty: it has not judged since the start.
    std::string lastReason;  ///< And why.
    long foundByGuard = 0;
    bool guarded = false;
    bool justStarted = false;  ///< The call before was a start on a given box.
    std::map<std::string, long> states;
    std::vector<double> ms;       ///< Of the plug-in's calls.
    std::vector<double> guardMs;  ///< Of the guard, where it judged.
    TargetSamples samples;
    const TruthTarget* truth = nullptr;
  };
  struct Still {
    long frame;
    double time_s;
    std::string note;  ///< Of an event; such a picture is thinned out last.
    std::string jpeg;  ///< Base64.
  };

  void add_(Target& target, const CallRecord& record);
  void judge_(Target& target, const CallRecord& record, nlohmann::ordered_json& point);
  bool noteEvent_(Target& target, const CallRecord& record, std::string& note);
  void addGuard_(Target& target, const CallRecord& record, nlohmann::ordered_json& point);
  void keepStill_(const cv::Mat& picture, const SourceFrame& frame, const std::string& note);
  void thinStills_();
  static void addTimes_(const Target& target, nlohmann::ordered_json& figures);
  nlohmann::ordered_json toJson_(const std::string& name, const Target& target) const;

  WholeText file_;
  std::vector<TruthTarget> truth_;
  RunInfo info_;
  Annotator annotator_;
  std::vector<std::string> names_;
  std::map<std::string, Target> targets_;
  std::vector<Still> stills_;
  std::size_t stillBytes_ = 0;  ///< Of all pictures, as base64.
  long stride_ = 1;             ///< Every so many frames one picture is kept.
  long frames_ = 0;
  bool hasResult_ = false;
};

}  // namespace host
