#include "live/live_source.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/host_error.h"
#include "live/module.h"

namespace live {
namespace {

using host::ExitCode;
using host::HostError;

constexpr double kAssumedFps = 25.0;  // a live source does not say its rate before its frames
constexpr double kWaitS = 0.1;

Address addressOf(const host::SourceOptions& source) {
  if (!source.pipeline.empty()) return {AddressKind::Pipeline, source.pipeline, "", 0, ""};
  std::string fault;
  Address address = parseAddress(source.source, fault);
  if (!fault.empty()) throw HostError(ExitCode::Usage, fault);
  return address;
}

void checkThere(const Address& address) {
  std::error_code failed;
  const bool isPath = address.kind == AddressKind::Device || address.kind == AddressKind::Sdp;
  if (isPath && !std::filesystem::exists(address.text, failed)) {
    const char* const what = address.kind == AddressKind::Device ? "camera" : "file";
    throw HostError(ExitCode::Source, std::string("there is no ") + what + " '" + address.text + "'");
  }
}

}  // namespace

bool isLiveAddress(const std::string& text) {
  std::string fault;
  return parseAddress(text, fault).kind != AddressKind::None;
}

LiveSource::LiveSource(const host::SourceOptions& source, const LiveOptions& options, std::function<bool()> isOver)
    : options_(options),
      isOver_(std::move(isOver)),
      clocks_(machineClocks()),
      fps_(source.fps > 0 ? source.fps : kAssumedFps),
      frames_(source.frames) {
  if (source.start != 0) throw HostError(ExitCode::Usage, "--start is for recorded sources: a live one begins now");
  const Address address = addressOf(source);
  kind_ = address.kind;
  shown_ = withoutPassword(address.text);
  checkThere(address);
  std::string fault;
  Module* const module = moduleFor(address.kind, fault);
  if (module == nullptr) throw HostError(ExitCode::Source, "cannot open '" + shown_ + "': " + fault);
  if (!options.sidecar.empty()) sidecar_.emplace(options.sidecar);
  auto stop = std::make_shared<std::atomic<bool>>(false);
  ReceiverRequest request{address, options.overUdp, options.connectLimitS, stop.get()};
  CaptureLoop::Options rules;
  rules.reconnects = comesBack(address.kind);
  rules.keepsPast = options.keepsPast;
  rules.firstS = options.connectLimitS + 1.0;  // read() says first that the time is over
  begin_ = clocks_.steady();
  capture_ = std::make_unique<Capture>([module, request] { return module->open(request); }, rules, std::move(stop));
}

bool LiveSource::read(host::SourceFrame& frame) {
  if (frames_ > 0 && read_ >= frames_) return false;
  NewestSlot<LiveFrame>& slot = capture_->loop().slot();
  while (!isOver_()) {
    if (sidecar_) sidecar_->readMore();
    const std::optional<LiveFrame> taken = slot.take(std::chrono::duration<double>(kWaitS));
    if (taken) {
      deliver_(*taken, frame);
      return true;
    }
    const double now = clocks_.steady();
    const CaptureReport seen = report();
    if (read_ == 0) {
      const bool hopeless = seen.ended || (!seen.reason.empty() && seen.decoded == 0);
      if (hopeless || now - begin_ > options_.connectLimitS) failFirst_();
    } else if (seen.ended || (options_.giveUpS > 0 && loss_.secondsWithout(now) > options_.giveUpS)) {
      return false;
    } else if (trySayLoss_(now, frame)) {
      return true;
    }
  }
  return false;
}

std::vector<std::string> LiveSource::faults() const {
  std::vector<std::string> faults = faultsOf(capture_->loop().report());
  if (losses_ > 0) faults.push_back("no signal " + std::to_string(losses_) + (losses_ == 1 ? " time" : " times"));
  const long lines = sidecar_ ? sidecar_->refused() : 0;
  if (lines > 0)
    faults.push_back(std::to_string(lines) + (lines == 1 ? " line" : " lines") + " of the metadata not understood");
  return faults;
}

void LiveSource::failFirst_() const {
  const CaptureReport seen = capture_->loop().report();
  const std::string why =
      seen.reason.empty() ? "no picture came within " + std::to_string(std::lround(options_.connectLimitS)) + " seconds"
                          : seen.reason;
  throw HostError(ExitCode::Source, "cannot receive '" + shown_ + "': " + why);
}

host::SourceFrame LiveSource::sourceFrameOf(const LiveFrame& taken, long dropped) const {
  host::SourceFrame frame;
  frame.index = taken.index;
  frame.time_s = taken.time_s;
  frame.bgr = taken.bgr;
  host::LiveFacts facts;
  facts.capturedAt = taken.capturedAt;
  facts.senderClock = taken.senderClock;
  facts.dropped = dropped;
  facts.camera = taken.camera;
  if (sidecar_) {
    const double unixTime = clocks_.unixTime() - (clocks_.steady() - taken.capturedAt);
    for (const auto& [key, value] : sidecar_->at(unixTime)) facts.camera[key] = value;
  }
  frame.live = std::move(facts);
  return frame;
}

void LiveSource::deliver_(const LiveFrame& taken, host::SourceFrame& frame) {
  const double now = clocks_.steady();
  if (loss_.lost() && !options_.quiet) {
    std::fprintf(stderr, "csrt-track: '%s': the signal is back after %.1f s\n", shown_.c_str(),
                 loss_.secondsWithout(now));
  }
  loss_.frameCame(now);
  frame = sourceFrameOf(taken, taken.index - lastIndex_ - 1);
  lastIndex_ = taken.index;
  lastTime_ = taken.time_s;
  ++read_;
}

bool LiveSource::trySayLoss_(double now, host::SourceFrame& frame) {
  const bool first = !loss_.lost();
  const std::optional<double> without = loss_.due(now);
  if (!without) return false;
  if (first) ++losses_;
  if (first && !options_.quiet) {
    std::fprintf(stderr, "csrt-track: '%s': no signal for %.1f s\n", shown_.c_str(), *without);
  }
  frame = {};
  frame.index = lastIndex_;
  frame.time_s = lastTime_ + *without;
  frame.noSignal = true;
  return true;
}

}  // namespace live
