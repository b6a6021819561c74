#include "live/capture.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "klv/st0601.h"

namespace live {
namespace {

constexpr double kReceiveS = 0.1;

template <typename Clock>
double secondsOf() {
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

/// A copy of the receiver's bytes, in the size of the run's first picture.
cv::Mat copyOf(const ReceivedPicture& picture, cv::Size wanted) {
  // OpenCV has no view on bytes that must not be written; nothing here writes.
  const cv::Mat view(picture.height, picture.width, CV_8UC3, const_cast<std::uint8_t*>(picture.bgr), picture.stride);
  if (view.size() == wanted) return view.clone();
  cv::Mat resized;
  cv::resize(view, resized, wanted, 0, 0, cv::INTER_AREA);
  return resized;
}

}  // namespace

Clocks machineClocks() {
  return {secondsOf<std::chrono::steady_clock>, secondsOf<std::chrono::system_clock>};
}

CaptureLoop::CaptureLoop(Open open, Options options, Clocks clocks)
    : open_(std::move(open)), options_(options), clocks_(std::move(clocks)) {}

double CaptureLoop::step(double waitS) {
  if (!receiver_) {
    receiver_ = open_();
    lastLife_ = clocks_.steady();
    pictureOfConnection_ = false;
    stamps_.restart();
  }
  const Received received = receiver_->next(waitS);
  takePackets_(received);
  if (received.event == Received::Event::Picture) takePicture_(received);
  const std::lock_guard<std::mutex> lock(mutex_);
  report_.damaged = damagedBefore_ + receiver_->damaged();
  if (received.event == Received::Event::Ended) return close_("the sender ended the stream", false, true);
  if (received.event == Received::Event::Failed) return close_(received.reason, received.refused, false);
  const double most = report_.decoded == 0 ? options_.firstS : options_.stalledS;
  if (clocks_.steady() - lastLife_ > most) return close_("no picture came", false, false);
  return 0.0;
}

/// Expects mutex_ held.
double CaptureLoop::close_(const std::string& reason, bool refused, bool ended) {
  damagedBefore_ += receiver_->damaged();
  receiver_.reset();
  report_.reason = reason;
  report_.refused = refused;
  if (!options_.reconnects || (ended && !pictureOfConnection_ && report_.connections == 0)) {
    report_.ended = true;
    slot_.close();
  }
  return plan_.failed(refused);
}

void CaptureLoop::takePicture_(const Received& received) {
  const ReceivedPicture& picture = received.picture;
  if (picture.bgr == nullptr || picture.width < 1 || picture.height < 1) return;
  const double now = clocks_.steady();
  lastLife_ = now;
  plan_.succeeded();
  if (size_.empty()) size_ = cv::Size(picture.width, picture.height);
  LiveFrame frame;
  const CaptureTime time = captureTime(now, clocks_.unixTime(), picture.heldS, picture.capturedUnixS);
  frame.capturedAt = time.at;
  frame.senderClock = time.senderClock;
  frame.time_s = runTime_.of(time.at);
  stamps_.picture(picture.streamS, now);
  frame.camera = camera_.at(picture.streamS);
  frame.bgr = copyOf(picture, size_);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    frame.index = report_.decoded++;
    if (!pictureOfConnection_) ++report_.connections;
    if (picture.width != size_.width || picture.height != size_.height) ++report_.resized;
    report_.timesCorrected = runTime_.corrected();
    report_.stampJumps = stamps_.jumps();
    if (report_.decoder.empty()) report_.decoder = receiver_->decoder();
  }
  pictureOfConnection_ = true;
  if (options_.keepsPast) past_.add(frame);
  slot_.put(std::move(frame));
}

void CaptureLoop::takePackets_(const Received& received) {
  for (const ReceivedPacket& packet : received.packets) {
    const std::size_t size = packet.bytes.size();
    std::size_t at = klv::findPacket(packet.bytes.data(), size);
    while (at < size) {
      const klv::Decoded decoded = klv::decode(packet.bytes.data() + at, size - at);
      const bool good = decoded.verdict == klv::Verdict::Good;
      if (good) camera_.add(packet.streamS, reader_.valuesOf(decoded.state));
      const std::lock_guard<std::mutex> lock(mutex_);
      ++(good ? report_.packets : report_.packetsRefused);
      at = klv::findPacket(packet.bytes.data(), size, at + std::max<std::size_t>(decoded.size, 1));
    }
  }
}

std::vector<std::string> faultsOf(const CaptureReport& seen) {
  std::vector<std::string> faults;
  const auto say = [&faults](long count, const char* one, const char* many) {
    if (count > 0) faults.push_back(std::to_string(count) + " " + (count == 1 ? one : many));
  };
  say(seen.connections - 1, "reconnection", "reconnections");
  say(seen.damaged, "damaged or lost packet or picture", "damaged or lost packets or pictures");
  say(seen.resized, "picture of another size, brought to that of the first",
      "pictures of another size, brought to that of the first");
  say(seen.stampJumps, "jump of its time stamps", "jumps of its time stamps");
  say(seen.timesCorrected, "capture time that went back", "capture times that went back");
  say(seen.packetsRefused, "refused packet of what the camera said", "refused packets of what the camera said");
  return faults;
}

CaptureReport CaptureLoop::report() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return report_;
}

void CaptureLoop::finish() {
  receiver_.reset();
  slot_.close();
}

Capture::Capture(CaptureLoop::Open open, CaptureLoop::Options options, std::shared_ptr<std::atomic<bool>> stop)
    : loop_(std::move(open), options, machineClocks()), stop_(std::move(stop)), thread_([this] { run_(); }) {}

Capture::~Capture() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    *stop_ = true;
  }
  stopping_.notify_all();
  thread_.join();
}

void Capture::run_() {
  while (!*stop_ && !loop_.slot().closed()) pause_(loop_.step(kReceiveS));
  loop_.finish();
}

void Capture::pause_(double seconds) {
  if (seconds <= 0) return;
  std::unique_lock<std::mutex> lock(mutex_);
  stopping_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return stop_->load(); });
}

}  // namespace live
