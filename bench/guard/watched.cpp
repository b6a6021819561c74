#include "watched.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <utility>

#include "config/presets.h"

namespace bench {
void CachedPlugin::init(long frame, const cv::Rect& box) {
  begin_ = frame;
  box_ = box;
  live_.reset();
  char start[512];
  std::snprintf(start, sizeof start, "%s|%s|%s|%ld|%d,%d,%d,%d", base_.library->engine().c_str(), base_.preset.c_str(),
                base_.scene.c_str(), frame, box.x, box.y, box.width, box.height);
  start_ = start;
}

void CachedPlugin::startLive_() {
  static std::mutex loading;  // class_loader makes one object at a time
  {
    const std::lock_guard<std::mutex> lock(loading);
    const std::string config = base_.preset.empty() ? "" : host::presetText(base_.preset);
    live_ = host::makePluginFollower(*base_.library, config, true);
  }
  const host::SourceFrame first = base_.frames(begin_);
  live_->init(std::make_shared<ocula::OculaPicture>(first.bgr), first, box_);
  at_ = begin_;
}

host::FollowerAnswer CachedPlugin::update(long frame) {
  if (const auto known = base_.cache->find(start_, frame)) return *known;
  if (live_ == nullptr) startLive_();
  host::FollowerAnswer answer;
  while (at_ < frame) {
    const host::SourceFrame next = base_.frames(++at_);
    answer = live_->update(std::make_shared<ocula::OculaPicture>(next.bgr), next);
    base_.cache->put(start_, at_, answer);
  }
  return answer;
}

Watched::Watched(const Base& base, const host::GuardChoice& guard) : plugin_(base), guard_(host::makeGuard(guard)) {}

void Watched::start(const host::SourceFrame& frame, const cv::Rect& box) {
  if (guard_) guard_->start(frame.bgr, box);
  plugin_.init(frame.index, box);
}

host::FollowerAnswer Watched::step(const host::SourceFrame& frame) {
  host::FollowerAnswer answer = plugin_.update(frame.index);
  tracker_ms += answer.cpu_ms;
  plain = answer;
  if (!guard_) return answer;
  csrt_guard::Answer told;
  if (answer.box) told.box = cv::Rect(*answer.box);
  told.seen = answer.seen && answer.box;
  const double begin = host::threadMilliseconds();
  verdict = guard_->judge(frame.bgr, told);
  const double spent = host::threadMilliseconds() - begin;
  (verdict.state == csrt_guard::State::Agreed ? seen_ms : lost_ms).push_back(spent);
  guard_ms += spent;
  if (verdict.restart) {
    ++restarts;
    plugin_.init(frame.index, *verdict.box);
  }
  answer.box = verdict.box ? std::optional<cv::Rect2d>(*verdict.box) : std::nullopt;
  answer.seen = verdict.seen && verdict.box;
  return answer;
}

std::optional<double> Watched::likenessOf(const cv::Mat& frame, const cv::Rect& box) const {
  return guard_ ? guard_->likenessOf(frame, box) : std::nullopt;
}

}  // namespace bench
