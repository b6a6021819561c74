#include "run/frame_rate.h"

#include <algorithm>

namespace host {

void FrameRate::forget_(double nowS) {
  while (!times_.empty() && times_.front() <= nowS - overS_) times_.pop_front();
}

void FrameRate::add(double nowS) {
  if (!begun_) {
    begun_ = true;  // the first frame opens the interval that the others are counted in
    beginS_ = nowS;
    return;
  }
  times_.push_back(nowS);
  forget_(nowS);
}

double FrameRate::at(double nowS) {
  forget_(nowS);
  const double interval = std::min(overS_, nowS - beginS_);
  return times_.empty() || interval <= 0.0 ? 0.0 : static_cast<double>(times_.size()) / interval;
}

}  // namespace host
