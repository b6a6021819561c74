// A host that does everything wrong, driven by bytes: a seeded generator's in the tests, a fuzzer's in fuzz/.
// After every call the promises of the plug-in are checked; a broken one is reported as text.
#pragma once

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "csrt_tracking_algo.h"
#include "locks.h"
#include "test_picture.h"

/// Choices drawn from bytes; 0 for ever once they are used up.
class ByteSource {
 public:
  explicit ByteSource(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

  bool done() const { return next_ >= bytes_.size(); }
  unsigned byte() { return done() ? 0U : bytes_[next_++]; }
  /// [0, n)
  unsigned pick(unsigned n) { return byte() % n; }
  bool oneIn(unsigned n) { return pick(n) == 1; }

  template <typename T>
  T any(std::initializer_list<T> choices) {
    return *(choices.begin() + pick(static_cast<unsigned>(choices.size())));
  }

  int anyInt() {
    if (oneIn(4)) return any({INT_MIN, -1, 0, 1, INT_MAX, INT_MAX - 1, 1 << 30, -(1 << 30)});
    return static_cast<int>(byte()) * 3 - 100;
  }

  double anyDouble() {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    if (oneIn(3)) return any({0.0, -1.0, 1e-6, 1e300, -1e300, kInf, -kInf, std::nan(""), 1e-320, 180.0});
    return byte() * 0.7 - 20.0;
  }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t next_ = 0;
};

/// What a host's own frame class may throw that is no std::exception.
struct HostFailure {};

/// A host with one plug-in object, misusing it.
class FaultyHost : private CSRTTrackingAlgo {
 public:
  explicit FaultyHost(ByteSource& source) : source_(source) {
    health_ = CsrtTrackerHealth([this] { return now_ += 0.1; });  // calls follow faster than any camera's frames
    config_.csrt.template_size = 32;  // the cheapest tracker there is: this is about calls, not about tracking
    config_.csrt.number_of_scales = 2;
    config_.csrt.admm_iterations = 1;
    config_.redetect.frames_lost_before_reset = 2;
    config_.preposition.enabled = true;
  }

  /// One wrong call. @return what promise it broke; empty when none
  std::string step() {
    switch (source_.pick(8)) {
      case 0:
        return guarded([this] { return doInit(); });
      case 1:
        setConfig(anyConfig());
        return checkState();
      case 2:
        return doIdentity();
      default:
        return guarded([this] { return doUpdate(); });
    }
  }

  /// After all of it, an honest host must be served. @return what went wrong; empty when nothing
  std::string recover() {
    config_ = CsrtConfig();
    config_.csrt.template_size = 48;
    enableDebug(false);
    cv::Mat picture(240, 320, CV_8UC3, cv::Scalar(90, 90, 90));
    cv::RNG random(5);
    cv::Mat target = picture(cv::Rect(140, 100, 40, 40));
    random.fill(target, cv::RNG::UNIFORM, 0, 255);
    const Frames frames{std::make_shared<TestPicture>(picture)};
    bool started = false;
    init(frames, {140, 100, 40, 40}, &started);
    if (!started) return "a healthy init() did not start";
    for (int i = 0; i < 3; ++i) {
      const std::vector<AlgoOutput> outputs = update(frames, nullptr);
      if (detectionsIn(outputs) != 1) return "a healthy update() did not track";
    }
    return {};
  }

 private:
  template <typename Call>
  std::string guarded(Call call) {
    try {
      const std::string broken = call();
      if (!broken.empty()) return broken;
    } catch (const HostFailure&) {
      if (!pictureThrewForeign_) return "something that is no std::exception came out of the plug-in";
    } catch (const std::exception& e) {
      // The one documented way: a tracker that could not be built on the live picture.
      if (!(initialized_ && tracker_ == nullptr)) return std::string("an undocumented exception: ") + e.what();
    }
    return checkState();
  }

  std::string doInit() {
    const BBox box{source_.anyInt(), source_.anyInt(), source_.anyInt(), source_.anyInt()};
    bool started = false;
    const std::vector<AlgoOutput> outputs = init(anyFrames(), box, source_.oneIn(4) ? nullptr : &started);
    if (outputs.size() > 1) return "init() answered more than one record";
    if (outputs.size() == 1 && outputs[0].name != "gimbal_preposition.v1") return "init() answered " + outputs[0].name;
    return {};
  }

  std::string doUpdate() {
    bool processed = false;
    const std::vector<AlgoOutput> outputs = update(anyFrames(), &processed);
    if (!processed) return "update() did not set processed";
    if (outputs.size() != 1 || outputs[0].name != "detection.v1") return "not exactly one detection.v1";
    if (detectionsIn(outputs) > 1) return "more than one detection without debug";
    return {};
  }

  std::string doIdentity() {
    const std::string uuid = getUuid();
    changePerformance(source_.anyInt());
    setProperty("a", "b");
    if (uuid.size() != 36 || uuid != getUuid() || getName() != "CSRTTrackingAlgo" || !isAlive())
      return "identity changed";
    return property("a").empty() && getPropertyList().empty() ? "" : "a property appeared";
  }

  std::string checkState() {
    if (!isFree(mutex_)) return "the lock is held after a call";
    if (lostFrames_ < 0 || redetectAttempts_ < 0 || lostSinceRedetect_ < 0 || oscillationCount_ < 0) {
      return "a counter is negative";
    }
    if (fullyLost_) return "fullyLost_ outlived its call";
    const float score = currentDetectionScore_();
    return score >= 0.0F && score <= 1.0F ? "" : "the score left [0, 1]";
  }

  static int detectionsIn(const std::vector<AlgoOutput>& outputs) {
    if (outputs.size() != 1) return -1;
    const auto& members = std::get<AlgoValue::Object>(outputs[0].value);
    return static_cast<int>(std::get<AlgoValue::Array>(members.at(0).second).size());
  }

  Frames anyFrames() {
    pictureThrewForeign_ = false;
    if (source_.oneIn(16)) return {};
    if (source_.oneIn(16)) return {nullptr, anyPicture()};
    return {anyPicture()};
  }

  cv::Mat anyPixels() {
    const cv::Size size =
        source_.any<cv::Size>({{160, 120}, {160, 120}, {160, 120}, {1, 1}, {33, 7}, {200, 3}, {96, 200}});
    const int type =
        source_.oneIn(3) ? source_.any({CV_8UC1, CV_8UC4, CV_16UC3, CV_32FC3, CV_8UC2, CV_64FC1}) : CV_8UC3;
    cv::Mat pixels(size, type);
    cv::RNG random(source_.byte() + 1U);
    random.fill(pixels, cv::RNG::UNIFORM, 0, 255);
    if (source_.oneIn(6)) pixels.setTo(cv::Scalar::all(128));
    if (source_.oneIn(6) && size.width > 40)
      pixels = pixels.colRange(3, size.width - 4);  // rows with gaps between them
    return source_.oneIn(12) ? cv::Mat() : pixels;
  }

  std::shared_ptr<TestPicture> anyPicture() {
    const auto picture = std::make_shared<TestPicture>(anyPixels(), anyMetadata());
    if (source_.oneIn(8))
      picture->size = cv::Size(source_.any({0, -1, 1, 160, 7680, INT_MAX}), source_.any({0, 120, 4320, 1}));
    if (source_.oneIn(6)) {
      const cv::Mat other = anyPixels();
      picture->onCrop = [other](const cv::Rect&) { return other; };
    }
    if (source_.oneIn(8)) {
      const cv::Mat other = anyPixels();
      picture->onBgr = [other] { return other; };
    }
    if (source_.oneIn(10)) picture->onCrop = [kind = source_.pick(4), this](const cv::Rect&) { return fail(kind); };
    if (source_.oneIn(12)) picture->onBgr = [kind = source_.pick(4), this] { return fail(kind); };
    return picture;
  }

  cv::Mat fail(unsigned kind) {
    if (kind == 0) throw std::runtime_error("the host's frame failed");
    if (kind == 1) throw std::system_error(std::make_error_code(std::errc::io_error));
    if (kind == 2) CV_Error(cv::Error::StsError, "the host's OpenCV failed");
    pictureThrewForeign_ = true;
    throw HostFailure();
  }

  ocula::OculaPicture::MetadataValue anyValue() {
    switch (source_.pick(6)) {
      case 0:
        return std::string("12.5");
      case 1:
        return source_.anyInt();
      case 2:
        return static_cast<unsigned long>(source_.byte());
      case 3:
        return std::vector<float>{1.0F, 2.0F};
      default:
        return source_.anyDouble();
    }
  }

  Metadata anyMetadata() {
    using Keys = Metadata::Keys;
    Metadata metadata;
    if (source_.oneIn(2)) return metadata;
    metadata = {{Keys::kPanDeg, 0.0},
                {Keys::kTiltDeg, 0.0},
                {Keys::kHfovDeg, 40.0},
                {Keys::kVfovDeg, 30.0},
                {Keys::kFollowMeEnabledCommand, 1}};
    for (const std::string& key : {Keys::kPanDeg, Keys::kTiltDeg, Keys::kHfovDeg, Keys::kVfovDeg, Keys::kZoomRatio,
                                   Keys::kFollowMeEnabledCommand}) {
      if (source_.oneIn(4)) metadata[key] = anyValue();
      if (source_.oneIn(12)) metadata.erase(key);
    }
    return metadata;
  }

  std::string anyConfig() {
    const char* value = source_.any(
        {"0", "1", "-5", "1e9", "true", "\"off\"", "\"kaiser\"", "\"nonsense\"", "[]", "null", "[1e308, -1, \"x\"]"});
    const char* key =
        source_.any({"csrt\":{\"window_function", "csrt\":{\"padding", "csrt\":{\"use_hog", "csrt\":{\"use_rgb",
                     "csrt\":{\"use_color_names", "roi\":{\"enable", "roi\":{\"freeze_input_size", "roi\":{\"round_to",
                     "redetect\":{\"scale_list", "redetect\":{\"coarse_factor", "redetect\":{\"re_detect_threshold",
                     "input\":{\"work_width", "input\":{\"refine_init", "predict\":{\"bbox_smooth_enable",
                     "preposition\":{\"alignment_tol_norm"});
    if (source_.oneIn(8))
      return source_.any<const char*>({"", "{", "[]", "nul", "{\"csrt\":5}", "{\"a\":\"\\ud800\"}"});
    return "{\"" + std::string(key) + "\":" + value + "}}";
  }

  ByteSource& source_;
  bool pictureThrewForeign_ = false;
  double now_ = 1000.0;
};
