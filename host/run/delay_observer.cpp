#include "run/delay_observer.h"

#include <cstdio>
#include <map>

#include "ocula/ocula_picture.h"

namespace host {
namespace {

using Keys = ocula::OculaPicture::BaseMetadata::Keys;

std::optional<double> valueOf(const std::map<std::string, double>& camera, const std::string& key) {
  const auto found = camera.find(key);
  return found == camera.end() ? std::nullopt : std::optional<double>(found->second);
}

}  // namespace

gimbal::PanTilt offFromMiddle(const cv::Rect& box, cv::Size frame, double hfov_deg, double vfov_deg) {
  const double x = (box.x + 0.5 * box.width) / frame.width;
  const double y = (box.y + 0.5 * box.height) / frame.height;
  return {(x - 0.5) * hfov_deg, (0.5 - y) * vfov_deg};
}

void DelayObserver::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  if (!frame.live) return;
  const std::map<std::string, double>& camera = frame.live->camera;
  const auto pan = valueOf(camera, Keys::kPanDeg);
  const auto tilt = valueOf(camera, Keys::kTiltDeg);
  const auto hfov = valueOf(camera, Keys::kHfovDeg);
  const auto vfov = valueOf(camera, Keys::kVfovDeg);
  if (!pan || !tilt) return;
  watch_.angles(frame.time_s, {*pan, *tilt});
  if (!records.empty() && isSeen(records.front()) && hfov && vfov) {
    watch_.seen(frame.time_s, offFromMiddle(*records.front().box, frame.bgr.size(), *hfov, *vfov));
  }
  if (watch_.news(frame.time_s) && !quiet_) {
    const std::string said = watch_.sentence();
    std::fprintf(stderr, "csrt-track: %s\n",
                 said.empty() ? "the camera's angles belong to the picture again" : said.c_str());
  }
}

void DelayObserver::restarted(const CallRecord& /*record*/) {
  watch_.newTarget();
}

std::optional<double> DelayObserver::stale_ms() const {
  return watch_.found_s() ? std::optional<double>(1000.0 * *watch_.found_s()) : std::nullopt;
}

}  // namespace host
