#include "web/web_front.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace host::web {

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string asciiText(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

void RecordFeed::add(std::string line) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(std::move(line));
    if (lines_.size() > kKept) lines_.pop_front();
    ++newest_;
  }
  changed_.notify_all();
}

std::vector<std::string> RecordFeed::after(long& last, long& missed, std::chrono::milliseconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, limit, [&] { return closed_ || newest_ > last; });
  const long kept = static_cast<long>(lines_.size());
  const long wanted = std::clamp(newest_ - last, 0L, kept);
  missed = std::max(0L, newest_ - last - wanted);
  last = newest_;
  return {lines_.end() - wanted, lines_.end()};
}

long RecordFeed::newest() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return newest_;
}

void RecordFeed::close() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

bool RecordFeed::closed() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

void WebFront::begin(const RunInfo& info) {
  parts_.view.begin(info);
  parts_.keeper.begin(info);
}

void WebFront::judged(const SourceFrame& frame, std::vector<CallRecord>& records) {
  parts_.keeper.judged(frame, records);
}

void WebFront::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  const double now = secondsNow();
  parts_.view.frame(frame, records, now);
  parts_.frames.add(frame.index, frame.bgr, now, asciiText(parts_.view.state(now)), records);
  feed_(records);
}

void WebFront::noSignal(const std::vector<CallRecord>& records) {
  const double now = secondsNow();
  parts_.view.noSignal(records, now);
  parts_.frames.tell(asciiText(parts_.view.state(now)));
  feed_(records);
}

void WebFront::restarted(const CallRecord& record) {
  const double now = secondsNow();
  parts_.view.started(record, now);
  parts_.frames.tell(asciiText(parts_.view.state(now)));
  feed_({record});
}

void WebFront::stopped(const std::string& target) {
  parts_.view.stopped(target);
  parts_.frames.tell(asciiText(parts_.view.state(secondsNow())));
}

void WebFront::end() {
  parts_.view.end();
  parts_.keeper.finish("the run has ended");
  parts_.frames.tell(asciiText(parts_.view.state(secondsNow())));
  parts_.commands.close();
}

void WebFront::feed_(const std::vector<CallRecord>& records) {
  for (const CallRecord& record : records) {
    parts_.records.add(toJson(record).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
  }
}

}  // namespace host::web
