// A recorded source, or a pipe, played as if it were live: the newest frame is taken, the last second is kept.
#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "input/frame_source.h"
#include "live/capture_rules.h"
#include "live/frame_ring.h"
#include "live/newest_slot.h"

namespace live {

/// How fast a file is played.
enum class Playing {
  AtItsRate,  ///< At the source's rate; who works slowly gets the newest frame and passes the others over.
  AsItComes,  ///< The source waits for its frames by itself, as a camera or a pipe does; else as AtItsRate.
  EveryFrame  ///< As fast as frames are asked for, none passed over.
};

/// One thread reads; except for EveryFrame the inner source has a thread of its own.
class PlayedSource : public host::FrameSource {
 public:
  /// @param isOver  asked about ten times a second while waiting: true ends the source
  /// @param stop    makes a read() of `inner` under way return soon, called from any thread; empty: it does so by
  /// itself
  PlayedSource(std::unique_ptr<host::FrameSource> inner, Playing playing, std::function<bool()> isOver,
               std::function<void()> stop = {});
  ~PlayedSource() override;
  PlayedSource(const PlayedSource&) = delete;
  PlayedSource& operator=(const PlayedSource&) = delete;

  /// As of a live source: with its facts, and once a second without picture (`noSignal`) while none comes.
  /// @throws what the inner source threw
  bool read(host::SourceFrame& frame) override;
  double fps() const override { return inner_->fps(); }
  std::string note() const override { return inner_->note(); }
  long expected() const override { return inner_->expected(); }
  /// Only after read() has said that it is over.
  std::vector<std::string> faults() const override { return over_ ? inner_->faults() : std::vector<std::string>{}; }

  FrameRing& past() { return past_; }
  /// A kept frame as read() would have given it.
  host::SourceFrame sourceFrameOf(const LiveFrame& frame) const;

 private:
  void run_();
  bool take_(LiveFrame& frame);
  void wait_(double time_s);
  void deliver_(const LiveFrame& taken, host::SourceFrame& frame);
  bool trySayLoss_(host::SourceFrame& frame);

  std::unique_ptr<host::FrameSource> inner_;
  Playing playing_;
  std::function<bool()> isOver_;
  std::function<void()> stopInner_;
  NewestSlot<LiveFrame> slot_;
  FrameRing past_;
  std::optional<double> begin_;  // of the source's time on the machine's clock; its thread only
  LossWatch loss_;
  std::optional<LiveFrame> last_;  // without its picture
  bool over_ = false;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::exception_ptr failed_;  // under mutex_
  std::thread thread_;
};

}  // namespace live
