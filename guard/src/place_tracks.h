// Places that look like the target, followed from look to look: those that are somebody else and those that may be it.
// Densities here and in rivalry.h are per square of the target's diagonal and per 1 of the margin (see Rivalry).
#pragma once

#include <cstddef>
#include <opencv2/core.hpp>
#include <vector>

#include "target_search.h"

namespace csrt_guard {

/// One of them. Lengths are full-frame pixels.
struct PlaceTrack {
  cv::Rect2d box;
  cv::Point2d velocity;  ///< Pixels a frame.
  HalfColours look{};    ///< What it has looked like, mostly of late.
  double likeness = 0;   ///< To the target, mean of its looks.
  int looks = 0;         ///< How often it was found.
  int unseen = 0;        ///< Frames since it was found.
  int age = 0;           ///< Frames since it was first found.
  bool other = false;    ///< It was there while the target was elsewhere.
  bool found = false;    ///< In the last look.
  int likeliest = 0;     ///< Looks in which it was the likeliest by far enough, less those in which it was not.
  // Of when it was first found while the target was lost:
  double bornFar = 0;     ///< Diagonals from where the target was expected ...
  int bornLost = 0;       ///< ... so many frames after that was seen.
  double bornSame = 1;    ///< How much it looked as the target did of late; see lookFactor().
  double bornOthers = 0;  ///< How likely it was somebody known.
};

/// How much two looks speak for being of one person: 1 for what one person's usually have in common, less for less.
double lookFactor(const HalfColours& a, const HalfColours& b);

/// How likely somebody else is found at this place, looking like that.
double densityOf(const PlaceTrack& other, const Place& place);

/// Bounded in number. Tracks are continued by nearness, by where each was going and by colours.
class PlaceTracks {
 public:
  void clear() { all_.clear(); }

  /// Takes all tracks `frames` on and gives each place to the track that it continues, or else to a new one.
  /// @param other  new ones are somebody else
  /// @param own    by place: how likely the target itself would be there; nobody else gets it then. May be empty
  /// @param alike  by place: how much it looks as the target did of late, see lookFactor(); who looks less like what is
  ///               there does not get it either. May be empty
  void update(const std::vector<Place>& places, int frames, bool other, const std::vector<double>& own = {},
              const std::vector<double>& alike = {});

  /// The same while the target is in this box: all places are somebody else's. Who should be in the box as well is
  /// hidden and not found beside it.
  void updateBeside(const cv::Rect2d& target, const std::vector<Place>& places, int frames);

  /// One of them, by its number in all(), turns out to be in this box, and the target is not: what was first found
  /// since he was last found may be the target.
  /// @param behind  frames that all() is behind the box
  void isInstead(std::size_t who, const cv::Rect2d& box, int behind);

  /// Nothing is known any more of who is in this box.
  void forget(const cv::Rect2d& box);

  /// The densities of all others that were not found in the last look, added up.
  double unfoundOthersAt(const Place& place) const;

  /// One of them, seen a moment ago, should be in a part of this box now.
  bool meets(const cv::Rect2d& box) const;

  /// The target is found in this box: all else is somebody else.
  void targetIsIn(const cv::Rect2d& box);

  std::vector<PlaceTrack>& all() { return all_; }

 private:
  void match_(const std::vector<Place>& places, const std::vector<double>& own, const std::vector<double>& alike,
              const cv::Rect2d& hides, std::vector<bool>& taken);
  void update_(const std::vector<Place>& places, int frames, bool other, const std::vector<double>& own,
               const std::vector<double>& alike, const cv::Rect2d& hides);
  bool roomFor_();
  std::vector<PlaceTrack> all_;
};

}  // namespace csrt_guard
