// A tracker whose answers a test decides, to reach every branch without pixels and without waiting for OpenCV.
#pragma once

#include <deque>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/tracking.hpp>
#include <optional>
#include <utility>
#include <vector>

class ScriptedTracker : public cv::tracking::TrackerCSRT {
 public:
  /// The next steps find `boxInCrop`, or lose the target. After the last one every step loses.
  ScriptedTracker& thenFinds(const cv::Rect& boxInCrop) {
    return then([boxInCrop] { return boxInCrop; });
  }
  ScriptedTracker& thenLoses() {
    return then([] { return std::nullopt; });
  }
  ScriptedTracker& thenThrows() {
    return then([]() -> std::optional<cv::Rect> { CV_Error(cv::Error::StsError, "scripted failure"); });
  }

  void init(cv::InputArray /*image*/, const cv::Rect& /*box*/) override {}
  bool update(cv::InputArray image, cv::Rect& box) override {
    seen.push_back({image.size(), box});
    if (script_.empty()) return false;
    const auto answer = std::move(script_.front());
    script_.pop_front();
    const std::optional<cv::Rect> found = answer();
    if (found) box = *found;
    return found.has_value();
  }
  void setInitialMask(cv::InputArray /*mask*/) override {}

  struct Step {
    cv::Size image;
    cv::Rect boxBefore;
  };
  std::vector<Step> seen;  ///< What each step was given.

 private:
  using Answer = std::function<std::optional<cv::Rect>()>;
  ScriptedTracker& then(Answer answer) {
    script_.push_back(std::move(answer));
    return *this;
  }
  std::deque<Answer> script_;
};
