#include "input/frame_times.h"

#include <cstddef>

namespace host {
namespace {

constexpr double kLeastRate = 1.0;
constexpr double kMostRate = 1000.0;
constexpr double kLongestSource_s = 1e8;  // three years; without stamps readers answer with numbers far beyond

bool isStamp(double stamp_s) {
  return stamp_s >= 0 && stamp_s < kLongestSource_s;
}

}  // namespace

bool isBelievableRate(double fps) {
  return fps >= kLeastRate && fps <= kMostRate;
}

std::optional<double> rateOf(const std::vector<double>& stamps_s) {
  if (stamps_s.size() < 2) return std::nullopt;
  for (std::size_t i = 0; i < stamps_s.size(); ++i) {
    if (!isStamp(stamps_s[i]) || (i > 0 && !(stamps_s[i] > stamps_s[i - 1]))) return std::nullopt;
  }
  const double rate = static_cast<double>(stamps_s.size() - 1) / (stamps_s.back() - stamps_s.front());
  return isBelievableRate(rate) ? std::optional<double>(rate) : std::nullopt;
}

double FrameTimes::next(double stamp_s) {
  if (!begun_) {
    begun_ = true;
    first_s_ = stamp_s;
    trusted_ = trusted_ && isStamp(stamp_s);
    lastHadStamp_ = trusted_;
    return time_s_;
  }
  const double said_s = stamp_s - first_s_;
  if (trusted_ && isStamp(stamp_s) && said_s > time_s_) {
    if (lastHadStamp_) step_s_ = said_s - time_s_;
    lastHadStamp_ = true;
    return time_s_ = said_s;
  }
  const bool none = !(stamp_s > 0);  // readers say 0 where a frame has no stamp
  lastHadStamp_ = false;
  return time_s_ += none && step_s_ > 0 ? step_s_ : period_s_;
}

}  // namespace host
