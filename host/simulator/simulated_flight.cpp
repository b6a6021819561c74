#include "simulator/simulated_flight.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/text_output.h"
#include "input/y4m.h"
#include "link/transport.h"
#include "simulator/gimbal.h"
#include "simulator/gimbal_component.h"
#include "simulator/stage.h"

namespace host::sim {
namespace {

constexpr double kReading_s = 0.02;
constexpr double kMarkAgain_s = 0.5;
constexpr double kPlace_s = 0.2;
constexpr double kStep_s = 0.02;      // of simulated time
constexpr double kPatience_s = 60.0;  // of the machine's: a tracker that does not answer
constexpr double kAskAgain_s = 0.2;
constexpr double kSettling_s = 3.0;
constexpr std::size_t kMostWaiting = 8;  // frames
constexpr std::uint8_t kOperatorSystem = 255;
constexpr std::uint8_t kOperatorComponent = 190;

double monotonic() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Writes frames in a thread of its own; a reader that does not keep up loses the oldest.
class PipeWriter {
 public:
  PipeWriter(const std::string& path, cv::Size frame, double fps) : heading_(y4mHeading(frame, fps)) {
    if (path.empty()) return;
    path_ = path;
    thread_ = std::thread([this] { write_(); });
  }
  ~PipeWriter() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ended_ = true;
    }
    arrived_.notify_one();
    if (thread_.joinable()) thread_.join();
  }
  PipeWriter(const PipeWriter&) = delete;
  PipeWriter& operator=(const PipeWriter&) = delete;

  void write(std::vector<std::uint8_t> frame) {
    if (path_.empty()) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_.push_back(std::move(frame));
    if (waiting_.size() > kMostWaiting) waiting_.pop_front();
    arrived_.notify_one();
  }

 private:
  bool stopped_() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return ended_ || interruptSignal() != 0;
  }

  /// A pipe without a reader cannot be opened for writing yet.
  int open_() {
    while (!stopped_()) {
      const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644);
      if (fd >= 0) return fd;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return -1;
  }

  bool all_(int fd, const std::uint8_t* bytes, std::size_t size) {
    while (size > 0) {
      const ssize_t sent = ::write(fd, bytes, size);
      if (sent > 0) {
        bytes += sent;
        size -= static_cast<std::size_t>(sent);
      } else if (errno == EAGAIN || errno == EINTR) {
        if (stopped_()) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      } else {
        return false;  // the reader has gone
      }
    }
    return true;
  }

  void write_() {
    const int fd = open_();
    if (fd < 0) return;
    bool good = all_(fd, reinterpret_cast<const std::uint8_t*>(heading_.data()), heading_.size());
    while (good) {
      std::unique_lock<std::mutex> lock(mutex_);
      arrived_.wait_for(lock, std::chrono::milliseconds(100), [this] { return ended_ || !waiting_.empty(); });
      if (ended_) break;
      if (waiting_.empty()) continue;
      const std::vector<std::uint8_t> frame = std::move(waiting_.front());
      waiting_.pop_front();
      lock.unlock();
      good = all_(fd, frame.data(), frame.size());
    }
    ::close(fd);
  }

  std::string heading_;
  std::string path_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::vector<std::uint8_t>> waiting_;
  bool ended_ = false;
  std::thread thread_;
};

/// The person at the ground station: marks the target once, and again until that is acknowledged.
class Marker {
 public:
  void hear(const mavlink::Frame& frame, double t_s) {
    mavlink::Heartbeat heartbeat;
    mavlink::CommandAck ack;
    if (mavlink::tryRead(frame, heartbeat) && heartbeat.type == mavlink::kTypeCamera && !camera_) {
      camera_ = {frame.system, frame.component};
    } else if (mavlink::tryRead(frame, ack) && ack.command == mavlink::kCmdCameraTrackRectangle &&
               ack.target_system == kOperatorSystem && ack.result == 0 && !marked_s_) {
      marked_s_ = t_s;
    }
  }

  /// @param box  of the target, shares of the frame
  std::optional<mavlink::Frame> mark(const cv::Rect2d& box, double t_s) {
    if (!camera_ || marked_s_ || t_s < next_s_) return std::nullopt;
    next_s_ = t_s + kMarkAgain_s;
    mavlink::CommandLong command;
    command.command = mavlink::kCmdCameraTrackRectangle;
    command.param1 = static_cast<float>(std::clamp(box.x, 0.0, 1.0));
    command.param2 = static_cast<float>(std::clamp(box.y, 0.0, 1.0));
    command.param3 = static_cast<float>(std::clamp(box.br().x, 0.0, 1.0));
    command.param4 = static_cast<float>(std::clamp(box.br().y, 0.0, 1.0));
    command.target_system = camera_->first;
    command.target_component = camera_->second;
    command.confirmation = confirmation_++;
    mavlink::Frame frame = mavlink::toFrame(command);
    frame.system = kOperatorSystem;
    frame.component = kOperatorComponent;
    frame.sequence = sequence_++;
    return frame;
  }

  std::optional<double> marked_s() const { return marked_s_; }

 private:
  std::optional<std::pair<std::uint8_t, std::uint8_t>> camera_;
  std::optional<double> marked_s_;
  double next_s_ = 0.0;
  std::uint8_t confirmation_ = 0;
  std::uint8_t sequence_ = 0;
};

class Flight {
 public:
  Flight(const Scenario& scenario, const FlightOptions& options)
      : scenario_(scenario),
        options_(options),
        stage_(scenario),
        gimbal_(scenario.camera.pan, scenario.camera.tilt, scenario.camera.delay_s, scenario.camera.start),
        rng_(scenario.seed + 99),
        video_(options.video, scenario.frame, scenario.fps) {
    for (const std::string& line : options.lines) lines_.push_back(link::openTransport(line));
    if (!options.records.empty()) records_.emplace(options.records, "--records");
  }

  FlightResult run() {
    begin_s_ = monotonic();
    if (options_.lockStep) {
      stepThrough_();
      conclude_();
      return result_;
    }
    for (long i = 0; i < scenario_.frames() && interruptSignal() == 0; ++i) {
      const double due_s = static_cast<double>(i) / scenario_.fps;
      while (now_() < due_s) {
        pass_();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
      pass_();
      if (now_() > due_s + 0.5 / scenario_.fps) ++result_.lateFrames;
      take_();
    }
    conclude_();
    return result_;
  }

 private:
  struct Sent {
    double at_s;
    double captured_s;
    std::vector<std::uint8_t> bytes;
    cv::Rect2d box;
  };
  struct Reading {
    double at_s;
    Angles angles;
  };

  double now_() const { return options_.lockStep ? simulated_s_ : monotonic() - begin_s_; }

  /// The world moves on only when the tracker has done its part. Its clock follows ours.
  void stepThrough_() {
    meet_();
    begin_s_ = monotonic();  // not before the time that the tracker has seen already
    for (long i = 0; i < scenario_.frames() && interruptSignal() == 0; ++i) {
      const double due_s = static_cast<double>(i) / scenario_.fps;
      while (simulated_s_ < due_s && interruptSignal() == 0) {
        simulated_s_ = std::min(due_s, simulated_s_ + kStep_s);
        pass_();
        meet_();
      }
      take_();
    }
  }

  /// Waits until the tracker has heard all that was sent, at our time, and is done with the last frame that went out.
  void meet_() {
    const auto nanoseconds = [this](double t_s) { return std::llround(1e9 * (begin_s_ + t_s)); };
    const double giveUp_s = monotonic() + kPatience_s;
    mavlink::Timesync request;
    // Every request is another one, so that a late answer to the one before is not taken for this one's.
    request.ts1 = asked_ns_ = std::max<std::int64_t>(nanoseconds(simulated_s_), asked_ns_ + 1);
    for (double ask_s = 0.0; interruptSignal() == 0;) {
      const double now_s = monotonic();
      if (now_s > giveUp_s) throw HostError(ExitCode::Source, "--lock-step: the tracker does not answer to TIMESYNC");
      if (now_s >= ask_s) {
        ask_s = now_s + kAskAgain_s;
        mavlink::Frame frame = mavlink::toFrame(request);
        frame.system = kOperatorSystem;
        frame.component = kOperatorComponent;
        send_(frame);
      }
      std::vector<mavlink::Frame> frames;
      for (const auto& line : lines_) line->receive(frames);
      bool met = false;
      bool behind = false;
      for (const mavlink::Frame& frame : frames) {
        mavlink::Timesync answer;
        if (!mavlink::tryRead(frame, answer)) {
          inbox_.push_back(frame);
        } else if (answer.ts1 == request.ts1 && answer.tc1 != 0) {
          const bool done = !wentOut_s_ || answer.tc1 >= nanoseconds(*wentOut_s_) - 1000;
          met = met || done;
          behind = behind || !done;
        }
      }
      if (met) return;
      if (behind) ask_s = 0.0;  // it is at work: ask again at once
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  }

  void send_(const mavlink::Frame& frame) {
    const std::vector<std::uint8_t> bytes = mavlink::encodeFrame(frame);
    for (const auto& line : lines_) line->send(bytes);
  }

  void sayPlace_(double t_s) {
    if (!options_.platform || t_s < nextPlace_s_) return;
    nextPlace_s_ = t_s + kPlace_s;
    component_.sayPlace(options_.platform->lat_deg, options_.platform->lon_deg, options_.platform->alt_m,
                        options_.platform->height_m, options_.platform->heading_deg, t_s);
  }

  /// Lets the world go on until now.
  void pass_() {
    const double t_s = now_();
    gimbal_.advance(std::max(1e-6, t_s - advanced_s_));
    advanced_s_ = t_s;
    if (t_s >= nextReading_s_) {
      nextReading_s_ = std::max(nextReading_s_ + kReading_s, t_s);
      const double noise = scenario_.metadata.noise_deg;
      Angles angles = gimbal_.position();
      angles.pan += noise > 0 ? rng_.gaussian(noise) : 0.0;
      angles.tilt += noise > 0 ? rng_.gaussian(noise) : 0.0;
      readings_.push_back({t_s + scenario_.metadata.delay_s, angles});
    }
    for (; !readings_.empty() && readings_.front().at_s <= t_s; readings_.pop_front()) {
      component_.say(readings_.front().angles, t_s);
    }
    for (; !underWay_.empty() && underWay_.front().at_s <= t_s; underWay_.pop_front()) {
      video_.write(std::move(underWay_.front().bytes));
      shown_ = underWay_.front().box;
      if (options_.lockStep && !options_.video.empty()) {
        wentOut_s_ = underWay_.front().captured_s;
        meet_();
      }
    }
    sayPlace_(t_s);
    talk_(t_s);
  }

  void talk_(double t_s) {
    std::vector<mavlink::Frame> frames = std::exchange(inbox_, {});
    for (const auto& line : lines_) line->receive(frames);
    for (const mavlink::Frame& frame : frames) {
      component_.receive(frame, t_s);
      marker_.hear(frame, t_s);
    }
    while (const auto order = component_.takeOrder()) {
      gimbal_.order(*order);
      if (!result_.turned_s && (order->toPosition || std::hypot(order->value.pan, order->value.tilt) > 0.1)) {
        result_.turned_s = t_s;
      }
    }
    component_.tick(t_s);
    std::vector<mavlink::Frame> outgoing = component_.takeOutgoing();
    if (options_.marks && shown_) {
      // The mark is made for the frame that comes next, the one it will be used on: a person's would be a little old,
      // and that would say more about the person than about the gimbal.
      if (const auto mark = marker_.mark(underWay_.empty() ? *shown_ : underWay_.front().box, t_s))
        outgoing.push_back(*mark);
    }
    for (const mavlink::Frame& frame : outgoing) send_(frame);
  }

  void take_() {
    const double t_s = now_();
    const Angles at = gimbal_.position();
    const Angles shake = shakeAt(scenario_.camera.shake, t_s);
    const double hfov = hfovAt(scenario_.camera.hfov_deg, scenario_.camera.zoom, t_s, result_.turned_s.value_or(-1.0));
    const View view{{wrapped(at.pan + shake.pan), at.tilt + shake.tilt}, hfov, vfovOf(hfov, scenario_.frame)};
    const Truth truth = stage_.truth(view, t_s);
    const cv::Mat picture = stage_.see(view, t_s);
    const cv::Size frame = scenario_.frame;
    underWay_.push_back({t_s + scenario_.camera.video_delay_s, t_s, y4mFrame(picture, t_s + begin_s_),
                         cv::Rect2d(truth.box.x / frame.width, truth.box.y / frame.height,
                                    truth.box.width / frame.width, truth.box.height / frame.height)});
    ++result_.frames;
    if (records_) {
      const Angles off = between(view.centre, truth.direction);
      const nlohmann::ordered_json record = {{"t_s", t_s},
                                             {"pan_off_deg", off.pan},
                                             {"tilt_off_deg", off.tilt},
                                             {"gimbal_pan_deg", at.pan},
                                             {"gimbal_tilt_deg", at.tilt}};
      records_->writeLine(record.dump());
    }
    if (!result_.turned_s) return;
    // Beyond the target is the other side than where the target was.
    const double off = between(view.centre, truth.direction).pan;
    if (!firstSide_) firstSide_ = std::copysign(1.0, off);
    result_.overshoot_deg = std::max(result_.overshoot_deg, -*firstSide_ * off);
    if (t_s >= *result_.turned_s + kSettling_s) errors_.push_back(truth.pointingErrorDeg);
    if (t_s >= *result_.turned_s + kSettling_s) panSquares_ += off * off;
  }

  void conclude_() {
    result_.marked_s = marker_.marked_s();
    if (result_.turned_s) result_.judgedFrom_s = *result_.turned_s + kSettling_s;
    result_.judged = static_cast<long>(errors_.size());
    if (errors_.empty()) return;
    double squares = 0.0;
    for (const double error : errors_) squares += error * error;
    result_.rms_deg = std::sqrt(squares / static_cast<double>(errors_.size()));
    result_.pan_rms_deg = std::sqrt(panSquares_ / static_cast<double>(errors_.size()));
    std::sort(errors_.begin(), errors_.end());
    result_.p95_deg = errors_[static_cast<std::size_t>(0.95 * static_cast<double>(errors_.size() - 1))];
    result_.max_deg = errors_.back();
  }

  const Scenario& scenario_;
  const FlightOptions& options_;
  Stage stage_;
  Gimbal gimbal_;
  GimbalComponent component_{1};
  Marker marker_;
  cv::RNG rng_;
  PipeWriter video_;
  std::vector<std::unique_ptr<link::Transport>> lines_;
  std::optional<TextOutput> records_;
  std::deque<Sent> underWay_;
  std::deque<Reading> readings_;
  std::optional<cv::Rect2d> shown_;  // the target in the last frame that has gone out
  std::optional<double> firstSide_;
  std::vector<double> errors_;
  double panSquares_ = 0.0;
  double begin_s_ = 0.0;
  double advanced_s_ = 0.0;
  double nextReading_s_ = 0.0;
  double nextPlace_s_ = 0.0;
  double simulated_s_ = 0.0;
  std::int64_t asked_ns_ = 0;
  std::optional<double> wentOut_s_;  // when the last frame that has gone out was taken
  std::vector<mavlink::Frame> inbox_;
  FlightResult result_;
};

}  // namespace

nlohmann::ordered_json toJson(const FlightResult& result) {
  nlohmann::ordered_json json = {{"frames", result.frames}, {"late_frames", result.lateFrames}};
  json["marked_s"] = result.marked_s ? nlohmann::ordered_json(*result.marked_s) : nlohmann::ordered_json();
  json["turned_s"] = result.turned_s ? nlohmann::ordered_json(*result.turned_s) : nlohmann::ordered_json();
  json["judged_from_s"] = result.judgedFrom_s;
  json["judged_frames"] = result.judged;
  json["pointing_error_rms_deg"] = result.rms_deg;
  json["pan_error_rms_deg"] = result.pan_rms_deg;
  json["pointing_error_p95_deg"] = result.p95_deg;
  json["pointing_error_max_deg"] = result.max_deg;
  json["overshoot_deg"] = result.overshoot_deg;
  return json;
}

FlightResult fly(const Scenario& scenario, const FlightOptions& options) {
  return Flight(scenario, options).run();
}

}  // namespace host::sim
