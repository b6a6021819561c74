#include "web/frame_store.h"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <vector>

namespace host::web {
namespace {

std::size_t bytesOf(const cv::Mat& picture) {
  return picture.total() * picture.elemSize();
}

}  // namespace

void FrameStore::add(long index, const cv::Mat& bgr, double now, std::string state,
                     const std::vector<CallRecord>& records) {
  auto kept = std::make_shared<Kept>();
  kept->index = index;
  kept->bgr = bgr;
  kept->at = now;
  kept->records = std::make_shared<const std::vector<CallRecord>>(records);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    frames_.push_back(std::move(kept));
    bytes_ += bytesOf(bgr);
    while (frames_.size() > 1 && (now - frames_.front()->at > kSeconds || bytes_ > kBytes)) {
      bytes_ -= bytesOf(frames_.front()->bgr);
      frames_.pop_front();
    }
    state_ = std::move(state);
  }
  changed_.notify_all();
}

void FrameStore::tell(std::string state) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    state_ = std::move(state);
    ++told_;
  }
  changed_.notify_all();
}

ShownFrame FrameStore::next(long after, std::chrono::milliseconds limit) {
  std::shared_ptr<Kept> newest;
  ShownFrame shown;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    const long told = told_;
    const auto isNews = [&] {
      return closed_ || told_ != told || (!frames_.empty() && frames_.back()->index != after);
    };
    changed_.wait_for(lock, limit, isNews);
    shown.state = state_;
    if (frames_.empty()) return shown;
    shown.index = frames_.back()->index;
    if (shown.index == after) return shown;
    newest = frames_.back();
  }
  shown.jpeg = encoded_(*newest);
  return shown;
}

std::shared_ptr<const std::string> FrameStore::encoded_(Kept& kept) {
  std::call_once(kept.once, [&] {
    std::vector<unsigned char> bytes;
    cv::imencode(".jpg", kept.bgr, bytes, {cv::IMWRITE_JPEG_QUALITY, kQuality});
    kept.jpeg = std::make_shared<const std::string>(bytes.begin(), bytes.end());
    const std::lock_guard<std::mutex> lock(mutex_);
    ++encodedCount_;
    const auto later = std::find_if(watched_.rbegin(), watched_.rend(),
                                    [&kept](const WatchedFrame& frame) { return frame.at <= kept.at; });
    watched_.insert(later.base(), {kept.index, kept.at, kept.jpeg, kept.records});
    watchedBytes_ += kept.jpeg->size();
    while (watched_.back().at - watched_.front().at > kClipSeconds || watchedBytes_ > kClipBytes) {
      watchedBytes_ -= watched_.front().jpeg->size();
      watched_.pop_front();
      if (watched_.empty()) break;
    }
  });
  return kept.jpeg;
}

std::shared_ptr<FrameStore::Kept> FrameStore::find_Locked_(long index) const {
  for (auto kept = frames_.rbegin(); kept != frames_.rend(); ++kept) {
    if ((*kept)->index == index) return *kept;
  }
  return nullptr;
}

cv::Mat FrameStore::picture(std::optional<long> index) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (frames_.empty()) return {};
  const std::shared_ptr<Kept> kept = index ? find_Locked_(*index) : frames_.back();
  return kept ? kept->bgr : cv::Mat();
}

std::shared_ptr<const std::string> FrameStore::jpeg(long index) {
  std::shared_ptr<Kept> kept;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    kept = find_Locked_(index);
  }
  return kept ? encoded_(*kept) : nullptr;
}

std::shared_ptr<const std::vector<CallRecord>> FrameStore::records(long index) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::shared_ptr<Kept> kept = find_Locked_(index);
  return kept ? kept->records : nullptr;
}

std::vector<WatchedFrame> FrameStore::watched() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {watched_.begin(), watched_.end()};
}

std::pair<long, long> FrameStore::range() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (frames_.empty()) return {0, -1};
  return {frames_.front()->index, frames_.back()->index};
}

std::string FrameStore::state() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return state_;
}

long FrameStore::encoded() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return encodedCount_;
}

void FrameStore::close() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

bool FrameStore::closed() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

}  // namespace host::web
