#include "evaluation/follower.h"

#include <time.h>

#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <opencv2/tracking.hpp>
#include <utility>

#include "csrt_config.h"
#include "plugin/target_session.h"

namespace host {
namespace {

using Json = nlohmann::json;

/// To a microsecond, so that a result reads the same after it has been written and read again.
double rounded(double ms) {
  return std::round(ms * 1e3) / 1e3;
}

class PluginFollower : public Follower {
 public:
  PluginFollower(PluginLibrary& library, const std::string& configText, bool followFrameTime)
      : session_(library.create(), "target", library.engine()) {
    session_.configure(configText);
    session_.keepPace(followFrameTime ? Pace::Video : Pace::Fast);
  }

  bool init(const Picture& picture, const SourceFrame& frame, const cv::Rect& box) override {
    return session_.init(picture, {frame.index, frame.time_s}, {box.x, box.y, box.width, box.height}).started;
  }

  FollowerAnswer update(const Picture& picture, const SourceFrame& frame) override {
    const double begin = threadMilliseconds();
    const CallRecord record = session_.update(picture, {frame.index, frame.time_s});
    FollowerAnswer answer;
    answer.cpu_ms = rounded(threadMilliseconds() - begin);
    answer.wall_ms = rounded(record.update_ms);
    if (record.box) answer.box = cv::Rect2d(*record.box);
    answer.seen = isSeen(record);
    return answer;
  }

 private:
  TargetSession session_;
};

class TrackerFollower : public Follower {
 public:
  explicit TrackerFollower(cv::Ptr<cv::Tracker> tracker) : tracker_(std::move(tracker)) {}

  bool init(const Picture& picture, const SourceFrame& /*frame*/, const cv::Rect& box) override {
    const cv::Rect inside = box & cv::Rect(0, 0, picture->width(), picture->height());
    if (inside.empty()) return false;
    try {
      tracker_->init(picture->getBGR(), inside);
    } catch (const cv::Exception&) {
      return false;
    }
    return true;
  }

  FollowerAnswer update(const Picture& picture, const SourceFrame& /*frame*/) override {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    const double cpuBegin = threadMilliseconds();
    FollowerAnswer answer;
    cv::Rect box;
    try {
      answer.seen = tracker_->update(picture->getBGR(), box);
    } catch (const cv::Exception&) {
      answer.seen = false;  // its box has left the picture
    }
    answer.cpu_ms = rounded(threadMilliseconds() - cpuBegin);
    answer.wall_ms = rounded(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    if (answer.seen && !box.empty()) answer.box = cv::Rect2d(box);
    return answer;
  }

 private:
  cv::Ptr<cv::Tracker> tracker_;
};

template <typename Field, typename Source>
void take(const Json& group, const char* key, Source fallback, Field& field) {
  const bool fits =
      group.contains(key) && group[key].type() != Json::value_t::null &&
      (group[key].is_boolean() == std::is_same_v<Source, bool>)&&(group[key].is_number() || group[key].is_boolean());
  field = static_cast<Field>(fits ? group[key].get<Source>() : fallback);
}

cv::tracking::TrackerCSRT::Params paramsOf(const std::string& configText) {
  const Json config = Json::parse(configText, nullptr, false);
  const bool has = config.is_object() && config.contains("csrt") && config["csrt"].is_object();
  const Json group = has ? config["csrt"] : Json::object();
  const CsrtConfig::Csrt d;
  cv::tracking::TrackerCSRT::Params p;
  take(group, "use_hog", d.use_hog, p.use_hog);
  take(group, "use_color_names", d.use_color_names, p.use_color_names);
  take(group, "use_rgb", d.use_rgb, p.use_rgb);
  take(group, "use_segmentation", d.use_segmentation, p.use_segmentation);
  take(group, "use_gray", d.use_gray, p.use_gray);
  take(group, "template_size", d.template_size, p.template_size);
  take(group, "number_of_scales", d.number_of_scales, p.number_of_scales);
  take(group, "scale_sigma_factor", d.scale_sigma_factor, p.scale_sigma_factor);
  take(group, "scale_lr", d.scale_lr, p.scale_lr);
  take(group, "padding", d.padding, p.padding);
  take(group, "psr_threshold", d.psr_threshold, p.psr_threshold);
  take(group, "background_ratio", d.background_ratio, p.background_ratio);
  take(group, "admm_iterations", d.admm_iterations, p.admm_iterations);
  take(group, "filter_lr", d.filter_lr, p.filter_lr);
  take(group, "weights_lr", d.weights_lr, p.weights_lr);
  return p;
}

}  // namespace

std::unique_ptr<Follower> makePluginFollower(PluginLibrary& library, const std::string& configText,
                                             bool followFrameTime) {
  return std::make_unique<PluginFollower>(library, configText, followFrameTime);
}

std::unique_ptr<Follower> makeReferenceFollower(const std::string* configText, TrackerMaker make) {
  return makeTrackerFollower(make(configText == nullptr ? cv::tracking::TrackerCSRT::Params() : paramsOf(*configText)));
}

std::unique_ptr<Follower> makeTrackerFollower(cv::Ptr<cv::Tracker> tracker) {
  return std::make_unique<TrackerFollower>(std::move(tracker));
}

double threadMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

}  // namespace host
