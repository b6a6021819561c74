#include "evaluation/follower.h"

#include <time.h>

#include <chrono>
#include <cmath>
#include <opencv2/tracking.hpp>
#include <stdexcept>
#include <utility>

#include "config_readers.h"
#include "csrt_params.h"
#include "plugin/target_session.h"

namespace host {
namespace {

/// To a microsecond, so that a result reads the same after it has been written and read again.
double rounded(double ms) {
  return std::round(ms * 1e3) / 1e3;
}

class PluginFollower : public Follower {
 public:
  PluginFollower(PluginLibrary& library, const std::string& configText, bool followFrameTime, const GuardChoice& guard)
      : session_(library.create(), "target", library.engine()) {
    session_.configure(configText);
    session_.keepPace(followFrameTime ? Pace::Video : Pace::Fast);
    session_.guardWith(guard);
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
    if (inside.empty() || tracker_ == nullptr) return false;
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

/// Null where every feature is switched off: the plug-in refuses the start then.
cv::Ptr<cv::Tracker> trackerOf(const std::string& configText, TrackerMaker make) {
  const CsrtConfig config = readConfig(configText);
  try {
    requireFeature(config);
    return make(csrtParams(config));
  } catch (const std::runtime_error&) {
    return {};
  }
}

}  // namespace

std::unique_ptr<Follower> makePluginFollower(PluginLibrary& library, const std::string& configText,
                                             bool followFrameTime, const GuardChoice& guard) {
  return std::make_unique<PluginFollower>(library, configText, followFrameTime, guard);
}

std::unique_ptr<Follower> makeReferenceFollower(const std::string* configText, TrackerMaker make) {
  if (configText == nullptr) return makeTrackerFollower(make(cv::tracking::TrackerCSRT::Params()));
  return makeTrackerFollower(trackerOf(*configText, make));
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
