// Watches a live run for a camera whose angles do not belong to the pictures they come with.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "gimbal/delay_watch.h"
#include "run/run_observer.h"

namespace host {

/// Looks at the first target and at what the camera says with each live frame; other frames are passed over.
class DelayObserver : public RunObserver {
 public:
  /// @param quiet  nothing is said on standard error
  explicit DelayObserver(bool quiet) : quiet_(quiet) {}

  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override;

  /// By how much the angles are behind, milliseconds, as records say it; nothing as long as it is not known.
  std::optional<double> stale_ms() const;
  /// For the summary: one sentence, empty where there is nothing to be said.
  std::string sentence() const { return watch_.sentence(); }

 private:
  gimbal::DelayWatch watch_;
  bool quiet_;
};

/// Where a seen box lies from the picture's middle, degrees, pan to the right and tilt upwards. Pure.
gimbal::PanTilt offFromMiddle(const cv::Rect& box, cv::Size frame, double hfov_deg, double vfov_deg);

}  // namespace host
