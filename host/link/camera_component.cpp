#include "link/camera_component.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace host::link {
namespace {

using mavlink::Result;

constexpr double kHeartbeat_s = 1.0;
constexpr double kStatus_s = 0.2;
constexpr double kShortest_s = 0.01;   // between two messages of a kind
constexpr double kRepeat_s = 1.0;      // the same command again within it is a repetition ...
constexpr double kConfirmed_s = 10.0;  // ... and within it when it says so itself
constexpr std::size_t kRemembered = 32;
constexpr std::size_t kLongestQueue = 16;

bool forUs(std::uint8_t target, std::uint8_t own) {
  return target == 0 || target == own;
}

bool sameParameters(const mavlink::CommandLong& a, const mavlink::CommandLong& b) {
  const auto same = [](float x, float y) { return x == y || (std::isnan(x) && std::isnan(y)); };
  return a.command == b.command && same(a.param1, b.param1) && same(a.param2, b.param2) && same(a.param3, b.param3) &&
         same(a.param4, b.param4) && same(a.param5, b.param5) && same(a.param6, b.param6) && same(a.param7, b.param7);
}

mavlink::CommandLong toLong(const mavlink::CommandInt& command) {
  mavlink::CommandLong same;
  same.param1 = command.param1;
  same.param2 = command.param2;
  same.param3 = command.param3;
  same.param4 = command.param4;
  same.param5 = static_cast<float>(command.x);
  same.param6 = static_cast<float>(command.y);
  same.param7 = command.z;
  same.command = command.command;
  same.target_system = command.target_system;
  same.target_component = command.target_component;
  return same;
}

bool isShare(float value) {
  return value >= 0.0f && value <= 1.0f;  // and false for what is no number
}

}  // namespace

CameraComponent::CameraComponent(const CameraDescription& description, double now_s)
    : description_(description), begin_s_(now_s) {
  timers_[mavlink::Heartbeat::kId] = {kHeartbeat_s, now_s};
  timers_[mavlink::CameraTrackingImageStatus::kId] = {kStatus_s, now_s};
  if (description.knowsGround) timers_[mavlink::CameraTrackingGeoStatus::kId] = {kStatus_s, now_s};
}

void CameraComponent::queue_(mavlink::Frame frame) {
  frame.system = description_.system;
  frame.component = description_.component;
  frame.sequence = sequence_++;
  outgoing_.push_back(std::move(frame));
}

std::vector<mavlink::Frame> CameraComponent::takeOutgoing() {
  return std::exchange(outgoing_, {});
}

std::optional<TrackRequest> CameraComponent::takeRequest() {
  if (requests_.empty()) return std::nullopt;
  const TrackRequest request = requests_.front();
  requests_.pop_front();
  return request;
}

void CameraComponent::tick(double now_s) {
  for (auto& [id, timer] : timers_) {
    if (now_s < timer.next_s) continue;
    sayMessage_(id, now_s);
    timer.next_s += timer.interval_s;
    if (timer.next_s <= now_s) timer.next_s = now_s + timer.interval_s;  // the machine was asleep
  }
}

void CameraComponent::report(const TrackingReport& report, double now_s) {
  const bool changed = report.state != report_.state;
  report_ = report;
  const auto timer = timers_.find(mavlink::CameraTrackingImageStatus::kId);
  if (!changed || timer == timers_.end()) return;
  sayMessage_(mavlink::CameraTrackingImageStatus::kId, now_s);
  timer->second.next_s = now_s + timer->second.interval_s;
}

/// A sender's frames are numbered from 0 to 255 and over again: here they go on counting. One that came late, or twice,
/// has the number that it had in time.
std::int64_t CameraComponent::numberOf_(const mavlink::Frame& frame) {
  const std::pair<std::uint8_t, std::uint8_t> sender(frame.system, frame.component);
  std::int64_t& newest = newest_.emplace(sender, frame.sequence).first->second;
  const std::int64_t number = newest + static_cast<std::int8_t>(frame.sequence - static_cast<std::uint8_t>(newest));
  newest = std::max(newest, number);
  return number;
}

void CameraComponent::receive(const mavlink::Frame& frame, double now_s) {
  const std::int64_t number = numberOf_(frame);
  mavlink::CommandLong command;
  mavlink::CommandInt other;
  if (mavlink::tryRead(frame, other)) {
    command = toLong(other);
  } else if (!mavlink::tryRead(frame, command)) {
    return;
  }
  if (!forUs(command.target_system, description_.system)) return;
  if (!forUs(command.target_component, description_.component)) return;
  obey_(frame, number, command, now_s);
}

/// The same command when it has come already: a copy of a frame that the network made, one that came late, or a sender
/// that has not heard the acknowledgement. The same wish after another one, or after a while, is a new one.
const CameraComponent::Handled* CameraComponent::handledBefore_(const mavlink::Frame& frame, std::int64_t number,
                                                                const mavlink::CommandLong& command,
                                                                double now_s) const {
  bool isLast = true;  // of this sender's
  bool isLate = false;
  for (const Handled& handled : handled_) {  // newest first
    if (handled.system != frame.system || handled.component != frame.component) continue;
    if (isLast) isLate = number < handled.number;
    const bool wasLast = std::exchange(isLast, false);
    if (!sameParameters(handled.command, command)) continue;
    const double age_s = now_s - handled.at_s;
    const bool isCopy = number == handled.number || isLate;
    const bool isRepeated = wasLast && (age_s <= kRepeat_s || command.confirmation > handled.command.confirmation);
    if (age_s <= kConfirmed_s && (isCopy || isRepeated)) return &handled;
  }
  return nullptr;
}

void CameraComponent::obey_(const mavlink::Frame& frame, std::int64_t number, const mavlink::CommandLong& command,
                            double now_s) {
  const Handled* const before = handledBefore_(frame, number, command, now_s);
  // What only asks is answered again; what starts something is not.
  const bool starts = command.command == mavlink::kCmdCameraTrackPoint ||
                      command.command == mavlink::kCmdCameraTrackRectangle ||
                      command.command == mavlink::kCmdCameraStopTracking;
  const Result result = before != nullptr && starts ? before->result : result_(command, now_s);
  // Many components hear a command to all; only those that know it should answer.
  if (result == Result::Unsupported && command.target_component != description_.component) return;
  if (before == nullptr && starts) {
    handled_.push_front({frame.system, frame.component, number, command, result, now_s});
    if (handled_.size() > kRemembered) handled_.pop_back();
  }
  mavlink::CommandAck ack;
  ack.command = command.command;
  ack.result = static_cast<std::uint8_t>(result);
  ack.target_system = frame.system;
  ack.target_component = frame.component;
  send(ack);
}

Result CameraComponent::result_(const mavlink::CommandLong& command, double now_s) {
  const auto asked = [&](bool wanted, std::uint32_t id) {
    if (wanted) sayMessage_(id, now_s);
    return wanted ? Result::Accepted : Result::Denied;
  };
  switch (command.command) {
    case mavlink::kCmdSetMessageInterval:
      return setInterval_(command.param1, command.param2, now_s);
    case mavlink::kCmdGetMessageInterval: {
      if (!(command.param1 >= 0 && command.param1 <= 65535)) return Result::Denied;
      mavlink::MessageInterval message;
      message.message_id = static_cast<std::uint16_t>(command.param1);
      const auto timer = timers_.find(message.message_id);
      message.interval_us = timer == timers_.end() ? -1 : static_cast<std::int32_t>(timer->second.interval_s * 1e6);
      send(message);
      return Result::Accepted;
    }
    case mavlink::kCmdRequestMessage:
      if (!(command.param1 >= 0 && command.param1 < 16777216)) return Result::Denied;
      return sayMessage_(static_cast<std::uint32_t>(command.param1), now_s) ? Result::Accepted : Result::Unsupported;
    case mavlink::kCmdRequestCameraInformation:
      return asked(command.param1 == 1.0f, mavlink::CameraInformation::kId);
    case mavlink::kCmdRequestCameraSettings:
      return asked(command.param1 == 1.0f, mavlink::CameraSettings::kId);
    case mavlink::kCmdRequestVideoStreamInformation:
      return asked(command.param1 == 0.0f || command.param1 == 1.0f, mavlink::VideoStreamInformation::kId);
    case mavlink::kCmdRequestVideoStreamStatus:
      return asked(command.param1 == 0.0f || command.param1 == 1.0f, mavlink::VideoStreamStatus::kId);
    case mavlink::kCmdCameraTrackPoint:
    case mavlink::kCmdCameraTrackRectangle:
    case mavlink::kCmdCameraStopTracking:
      return track_(command);
    default:
      return Result::Unsupported;
  }
}

Result CameraComponent::setInterval_(double id, double interval_us, double now_s) {
  const auto number = id >= 0 && id < 65536 ? static_cast<std::uint32_t>(id) : 65536u;
  const bool known = number == mavlink::CameraTrackingImageStatus::kId || number == mavlink::CameraFovStatus::kId ||
                     (number == mavlink::CameraTrackingGeoStatus::kId && description_.knowsGround);
  if (!known) return Result::Unsupported;
  if (interval_us == -1) {
    timers_.erase(number);
    return Result::Accepted;
  }
  const bool isDefault = interval_us == 0;
  const double interval_s = isDefault ? kStatus_s : interval_us * 1e-6;
  if (!(interval_s >= kShortest_s && interval_s <= 3600.0)) return Result::Denied;
  if (isDefault && number == mavlink::CameraFovStatus::kId) {
    timers_.erase(number);  // only on request
    return Result::Accepted;
  }
  timers_[number] = {interval_s, now_s};
  return Result::Accepted;
}

Result CameraComponent::track_(const mavlink::CommandLong& command) {
  TrackRequest request;
  if (command.command == mavlink::kCmdCameraTrackPoint) {
    if (!isShare(command.param1) || !isShare(command.param2)) return Result::Denied;
    request.kind = TrackRequest::Kind::Point;  // its radius is the same number whatever was clicked: not used
    request.point = {command.param1, command.param2};
  } else if (command.command == mavlink::kCmdCameraTrackRectangle) {
    for (const float side : {command.param1, command.param2, command.param3, command.param4}) {
      if (!isShare(side)) return Result::Denied;
    }
    request.kind = TrackRequest::Kind::Rectangle;
    request.rectangle = {cv::Point2d(command.param1, command.param2), cv::Point2d(command.param3, command.param4)};
    if (request.rectangle.area() <= 0) return Result::Denied;
  }
  if (requests_.size() >= kLongestQueue) return Result::TemporarilyRejected;
  requests_.push_back(request);
  return Result::Accepted;
}

}  // namespace host::link
