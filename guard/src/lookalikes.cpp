#include "lookalikes.h"

#include <algorithm>
#include <cmath>

#include "target_motion.h"

namespace csrt_guard {
namespace {

constexpr std::size_t kMost = 12;
constexpr int kForgottenAfter = 15;     // frames
constexpr double kStep = 0.35;          // diagonals that a lookalike may be from where it should be ...
constexpr double kStepPerFrame = 0.04;  // ... and more for every frame that it was not seen
constexpr double kDamping = 0.95;

/// Of the centres, in diagonals of the second box.
double distanceOf(const cv::Rect2d& a, const cv::Rect2d& b) {
  return cv::norm(TargetMotion::centre(a) - TargetMotion::centre(b)) / std::max(1.0, std::hypot(b.width, b.height));
}

}  // namespace

std::vector<bool> Lookalikes::match_(const std::vector<Place>& places, const cv::Rect2d* expected, int frames) {
  std::vector<bool> taken(places.size(), false);
  for (Lookalike& other : all_) {
    other.unseen += frames;
    other.box += other.velocity * static_cast<double>(frames);
  }
  struct Pair {
    double distance;
    std::size_t other, place;
  };
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < all_.size(); ++i) {
    for (std::size_t j = 0; j < places.size(); ++j) {
      const double far = distanceOf(all_[i].box, places[j].box);
      const double fromTarget = expected != nullptr ? distanceOf(*expected, places[j].box) : far + 1.0;
      if (fromTarget < far) continue;
      if (far <= kStep + kStepPerFrame * all_[i].unseen) pairs.push_back({far, i, j});
    }
  }
  std::sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
    if (a.distance != b.distance) return a.distance < b.distance;
    return a.other != b.other ? a.other < b.other : a.place < b.place;
  });
  std::vector<bool> matched(all_.size(), false);
  for (const Pair& pair : pairs) {
    if (matched[pair.other] || taken[pair.place]) continue;
    matched[pair.other] = taken[pair.place] = true;
    Lookalike& other = all_[pair.other];
    const cv::Point2d off = TargetMotion::centre(places[pair.place].box) - TargetMotion::centre(other.box);
    other.velocity = other.velocity * kDamping + off * (0.3 / std::max(1, other.unseen));
    other.box = places[pair.place].box;
    other.unseen = 0;
  }
  all_.erase(std::remove_if(all_.begin(), all_.end(), [](const Lookalike& o) { return o.unseen > kForgottenAfter; }),
             all_.end());
  return taken;
}

void Lookalikes::learn(const std::vector<Place>& places, const cv::Rect2d& target, int frames) {
  std::vector<Place> elsewhere;
  for (const Place& place : places) {
    if ((place.box & target).area() < 0.3 * std::min(place.box.area(), target.area())) elsewhere.push_back(place);
  }
  const std::vector<bool> known = match_(elsewhere, nullptr, frames);
  for (std::size_t i = 0; i < elsewhere.size() && all_.size() < kMost; ++i) {
    if (!known[i]) all_.push_back({elsewhere[i].box, {}, 0});
  }
}

std::vector<Place> Lookalikes::follow(const std::vector<Place>& places, const cv::Rect2d& expected, int frames) {
  const std::vector<bool> known = match_(places, &expected, frames);
  std::vector<Place> nobodys;
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (!known[i]) nobodys.push_back(places[i]);
  }
  return nobodys;
}

}  // namespace csrt_guard
