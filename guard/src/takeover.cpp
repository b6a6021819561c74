#include "takeover.h"

#include "boxes.h"

namespace csrt_guard {
namespace {

constexpr int kLooks = 3;            // in which somebody must have been found to know where he goes
constexpr int kUnseenAtLeast = 6;    // frames that he is not found beside the box any more ...
constexpr int kUnseenAtMost = 40;    // ... after which he may be anywhere
constexpr double kDamping = 0.97;    // of the target's speed, a frame: as of the others'
constexpr double kThere = 0.5;       // diagonals from where he should be to the box, at most
constexpr double kAway = 0.5;        // diagonals from where the target should be to the box, at least ...
constexpr double kFarther = 0.2;     // ... and by so much more than from where he should be
constexpr double kLooksLike = 0.88;  // what he and the box have in common, at least

}  // namespace

void Takeover::clear() {
  past_.clear();
  fits_ = 0;
}

void Takeover::followed(const TargetMotion& motion, const HalfColours& recent) {
  if (past_.size() >= kUnseenAtMost) past_.erase(past_.begin());
  past_.push_back({motion, recent, 0});
}

std::optional<Takeover::Before> Takeover::noticed(const cv::Rect2d& box, const HalfColours& look,
                                                  const std::vector<PlaceTrack>& others, int behind, int frames) {
  const double diagonal = diagonalOf(box);
  std::optional<Before> before;
  for (std::size_t i = 0; i < others.size(); ++i) {
    const PlaceTrack& other = others[i];
    const int unseen = other.unseen + behind;
    if (!other.other || other.looks < kLooks || unseen < kUnseenAtLeast) continue;
    if (static_cast<std::size_t>(unseen) > past_.size()) continue;
    Before then = past_[past_.size() - static_cast<std::size_t>(unseen)];
    then.who = i;
    for (int frame = 0; frame < unseen; ++frame) then.motion.miss(kDamping);
    const double there = distanceBetween(other.box + other.velocity * static_cast<double>(behind), box) / diagonal;
    const double away = distanceBetween(then.motion.box(), box) / diagonal;
    if (there <= kThere && away >= kAway && away >= there + kFarther && sameness(look, other.look) >= kLooksLike)
      before = then;
  }
  fits_ = before ? fits_ + 1 : 0;
  return frames > 0 && fits_ >= frames ? before : std::nullopt;
}

}  // namespace csrt_guard
