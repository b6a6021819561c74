// The newest frames with what is known about each, for whoever watches: encoded once, and only when somebody asks.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "web/clip.h"

namespace host::web {

/// What a viewer gets.
struct ShownFrame {
  long index = -1;                          ///< -1: no frame yet.
  std::shared_ptr<const std::string> jpeg;  ///< Null when no newer frame came in time.
  std::string state;                        ///< What is known, as JSON; of this frame where there is a picture.
};

/// Threads: all calls from any thread. Encoding happens on the thread of the viewer that asks first; the others of the
/// same frame wait for it.
class FrameStore {
 public:
  static constexpr double kSeconds = 1.0;                            ///< Frames are kept for so long.
  static constexpr std::size_t kBytes = std::size_t{256} << 20;      ///< And at most so many bytes of them.
  static constexpr double kClipSeconds = 60.0;                       ///< For so long what was encoded is kept,
  static constexpr std::size_t kClipBytes = std::size_t{128} << 20;  ///< and so many bytes of it.
  static constexpr int kQuality = 80;                                ///< Of the JPEGs.

  /// @param bgr    never written to from here on
  /// @param now    seconds of a clock that never goes back
  /// @param state    JSON
  /// @param records  the frame's
  void add(long index, const cv::Mat& bgr, double now, std::string state, const std::vector<CallRecord>& records = {});

  /// Something changed without a new frame, such as that none comes; waiting viewers are told at once.
  void tell(std::string state);

  /// The newest frame if its number is another than `after`, else the next one; without a picture when none came within
  /// `limit`, something was told, or the store was closed. A number from the future is one of an earlier run.
  ShownFrame next(long after, std::chrono::milliseconds limit);

  /// The picture of a frame that is still kept, else an empty one; the newest for an empty number.
  cv::Mat picture(std::optional<long> index) const;
  /// The kept frame of that number encoded; null when it is not kept.
  std::shared_ptr<const std::string> jpeg(long index);
  /// The records of a frame that is still kept; null when it is not.
  std::shared_ptr<const std::vector<CallRecord>> records(long index) const;
  /// What was encoded within the last minute, oldest first.
  std::vector<WatchedFrame> watched() const;
  /// The numbers of the oldest and the newest frame that are kept; (0, -1): none.
  std::pair<long, long> range() const;
  /// What is known now, as JSON; empty before anything is.
  std::string state() const;

  long encoded() const;  ///< Frames that were encoded so far.
  void close();          ///< Nothing more comes: waiting ends.
  bool closed() const;

 private:
  struct Kept {
    long index = 0;
    cv::Mat bgr;
    double at = 0.0;
    std::shared_ptr<const std::vector<CallRecord>> records;
    std::once_flag once;
    std::shared_ptr<const std::string> jpeg;
  };
  std::shared_ptr<Kept> find_Locked_(long index) const;
  std::shared_ptr<const std::string> encoded_(Kept& kept);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Kept>> frames_;
  std::size_t bytes_ = 0;
  std::string state_;
  long told_ = 0;
  std::deque<WatchedFrame> watched_;
  std::size_t watchedBytes_ = 0;
  long encodedCount_ = 0;
  bool closed_ = false;
};

}  // namespace host::web
