#include "place_tracks.h"

#include <algorithm>
#include <cmath>

#include "boxes.h"

namespace csrt_guard {
namespace {

constexpr std::size_t kMost = 16;
constexpr int kKeptUnseen = 40;         // frames at most ...
constexpr int kKeptAtFirst = 3;         // ... and this many, with ...
constexpr int kKeptPerLook = 4;         // ... so many more for every time that it was found
constexpr double kStep = 0.3;           // diagonals that one may be from where it should be ...
constexpr double kStepPerFrame = 0.02;  // ... and more for every frame that it was not seen
constexpr double kUnlike = 1.5;         // diagonals that colours with nothing in common weigh
constexpr double kDamping = 0.97;       // of the speed of one that is not seen, a frame
constexpr double kFirstSpeed = 1.0;     // share of a new speed, the first time ...
constexpr double kNextSpeed = 0.35;     // ... and later
constexpr float kLookRate = 0.2F;
constexpr int kLikenessOf = 6;   // looks
constexpr double kHidden = 0.3;  // share of the smaller box that the target hides

constexpr int kKnownLooks = 2;  // from which a track is one
constexpr int kMomentAgo = 12;  // frames
constexpr double kMeets = 0.1;  // share of the smaller box

constexpr double kSpread = 0.15;          // diagonals: where one is that was just seen ...
constexpr double kSpreadPerFrame = 0.04;  // ... and more for every frame since
constexpr double kSpreadMost = 1.5;
constexpr double kMarginDensity = 4.0;  // of one whose margin is known to about 0.1
constexpr double kSameUsually = 0.95;   // what looks of one person have in common
constexpr double kLookWeight = 20.0;    // 0.05 less in common is e times less likely
constexpr double kChanged = 0.02;       // share of those that turned round or came into another light
constexpr double kOwnAtLeast = 0.33;    // of another's density: the target's, for a place to stay open
constexpr double kAlikeAtLeast = 0.5;   // of how much it looks like the other: like the target, for the same
constexpr double kTwoPi = 6.283185307179586;

double distanceOf(const cv::Rect2d& a, const cv::Rect2d& b) {
  return distanceBetween(a, b) / std::max(1.0, diagonalOf(b));
}

void take(PlaceTrack& track, const Place& place) {
  const cv::Point2d off = centreOf(place.box) - centreOf(track.box);
  track.velocity += off * ((track.looks < 2 ? kFirstSpeed : kNextSpeed) / std::max(1, track.unseen));
  track.box = place.box;
  ++track.looks;
  track.likeness += (place.likeness - track.likeness) / std::min(track.looks, kLikenessOf);
  blend(track.look, place.look, kLookRate);
  track.unseen = 0;
  track.found = true;
}

PlaceTrack trackFrom(const Place& place, bool other) {
  PlaceTrack track;
  track.box = place.box;
  track.look = place.look;
  track.likeness = place.likeness;
  track.looks = 1;
  track.other = other;
  track.found = true;
  return track;
}

}  // namespace

double lookFactor(const HalfColours& a, const HalfColours& b) {
  return kChanged + (1.0 - kChanged) * std::exp(-kLookWeight * (kSameUsually - sameness(a, b)));
}

double densityOf(const PlaceTrack& other, const Place& place) {
  const double spread = std::min(kSpreadMost, kSpread + kSpreadPerFrame * other.unseen);
  const double far = distanceOf(other.box, place.box) / spread;
  return kMarginDensity * lookFactor(other.look, place.look) * std::exp(-0.5 * far * far) / (kTwoPi * spread * spread);
}

double PlaceTracks::unfoundOthersAt(const Place& place) const {
  double sum = 0.0;
  for (const PlaceTrack& track : all_) {
    if (track.other && !track.found) sum += densityOf(track, place);
  }
  return sum;
}

void PlaceTracks::match_(const std::vector<Place>& places, const std::vector<double>& own,
                         const std::vector<double>& alike, const cv::Rect2d& hides, std::vector<bool>& taken) {
  struct Pair {
    double cost;
    std::size_t track, place;
  };
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < all_.size(); ++i) {
    if ((all_[i].box & hides).area() > kHidden * std::min(all_[i].box.area(), hides.area())) continue;
    for (std::size_t j = 0; j < places.size(); ++j) {
      const double far = distanceOf(all_[i].box, places[j].box);
      if (far > kStep + kStepPerFrame * all_[i].unseen) continue;
      if (all_[i].other && !own.empty() && own[j] > kOwnAtLeast * densityOf(all_[i], places[j])) continue;
      if (all_[i].other && !alike.empty() && alike[j] > kAlikeAtLeast * lookFactor(all_[i].look, places[j].look))
        continue;
      pairs.push_back({far + kUnlike * (1.0 - sameness(all_[i].look, places[j].look)), i, j});
    }
  }
  std::sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
    if (a.cost != b.cost) return a.cost < b.cost;
    return a.track != b.track ? a.track < b.track : a.place < b.place;
  });
  for (const Pair& pair : pairs) {
    if (all_[pair.track].found || taken[pair.place]) continue;
    taken[pair.place] = true;
    take(all_[pair.track], places[pair.place]);
  }
}

/// Where all are taken, the one that was not found for longest makes room; false: all were just found.
bool PlaceTracks::roomFor_() {
  if (all_.size() < kMost) return true;
  const auto oldest = std::max_element(all_.begin(), all_.end(),
                                       [](const PlaceTrack& a, const PlaceTrack& b) { return a.unseen < b.unseen; });
  if (oldest->unseen == 0) return false;
  all_.erase(oldest);
  return true;
}

void PlaceTracks::update(const std::vector<Place>& places, int frames, bool other, const std::vector<double>& own,
                         const std::vector<double>& alike) {
  update_(places, frames, other, own, alike, {});
}

void PlaceTracks::updateBeside(const cv::Rect2d& target, const std::vector<Place>& places, int frames) {
  update_(places, frames, true, {}, {}, target);
}

void PlaceTracks::update_(const std::vector<Place>& places, int frames, bool other, const std::vector<double>& own,
                          const std::vector<double>& alike, const cv::Rect2d& hides) {
  for (PlaceTrack& track : all_) {
    track.found = false;
    track.unseen += frames;
    track.age += frames;
    track.box += track.velocity * static_cast<double>(frames);
    if (track.unseen > frames) track.velocity *= std::pow(kDamping, frames);
  }
  std::vector<bool> taken(places.size(), false);
  match_(places, own, alike, hides, taken);
  const auto forgotten = [](const PlaceTrack& track) {
    return track.unseen > std::min(kKeptUnseen, kKeptAtFirst + kKeptPerLook * track.looks);
  };
  all_.erase(std::remove_if(all_.begin(), all_.end(), forgotten), all_.end());
  for (std::size_t j = 0; j < places.size(); ++j) {
    if (taken[j] || !roomFor_()) continue;
    all_.push_back(trackFrom(places[j], other));
  }
}

void PlaceTracks::isInstead(std::size_t who, const cv::Rect2d& box, int behind) {
  PlaceTrack& one = all_.at(who);
  for (PlaceTrack& track : all_) track.other = track.other && track.age >= one.unseen;
  one.box = box - one.velocity * static_cast<double>(behind);
  one.unseen = 0;
}

void PlaceTracks::forget(const cv::Rect2d& box) {
  const auto inside = [&box](const PlaceTrack& track) { return (track.box & box).area() > kHidden * box.area(); };
  all_.erase(std::remove_if(all_.begin(), all_.end(), inside), all_.end());
}

bool PlaceTracks::meets(const cv::Rect2d& box) const {
  return std::any_of(all_.begin(), all_.end(), [&box](const PlaceTrack& track) {
    return track.looks >= kKnownLooks && track.unseen <= kMomentAgo &&
           (track.box & box).area() >= kMeets * std::min(track.box.area(), box.area());
  });
}

void PlaceTracks::targetIsIn(const cv::Rect2d& box) {
  const auto gone = [&box](const PlaceTrack& track) { return track.unseen > kKeptAtFirst || track.box == box; };
  all_.erase(std::remove_if(all_.begin(), all_.end(), gone), all_.end());
  for (PlaceTrack& track : all_) track.other = true;
}

}  // namespace csrt_guard
