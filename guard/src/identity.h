// Is it the target or one of those beside it: what is learnt of both while the target is followed, and what follows.
#pragma once

#include "discriminant.h"

namespace csrt_guard {

/// Looks are learnt only while it is clear whose they are: not while two overlap, not just after a find, and not of a
/// box that looks like somebody else.
class Identity {
 public:
  void start(const HalfColours& look);

  /// One frame in which the tracker is believed, and what its box shows.
  void followed(const HalfColours& look);
  /// The tracker's boxes have looked like somebody else for a while: it may have changed over.
  bool looksLikeOther() const { return mean_ < kOther; }

  /// The box of this frame, after followed(), shows the target: learns its look.
  void learn(const HalfColours& look);
  /// This is somebody else: learns the look.
  void learnOther(const HalfColours& look);
  /// Somebody else is in the target's box too, or the target was just found, likely: for some frames nothing is learnt.
  /// The first time in those frames, what boxes showed before is forgotten as by again().
  void meets();
  /// The tracker is on the target again, likely: what its boxes showed before says nothing any more.
  void again();

  /// Logarithm of how many times likelier a box shows the target than one of those beside it for looking like this,
  /// [-4, 3]; 0: too little was seen to say.
  double logFactorOf(const HalfColours& look);

 private:
  static constexpr double kOther = -0.5;  // between the others' mean, -1, and the middle
  static constexpr int kPause = 10;       // frames

  Discriminant kinds_;
  double now_ = 1.0;   ///< What the box shows: 1 the target, -1 others.
  double mean_ = 0.0;  ///< Of late.
  int seen_ = 0;       ///< Frames of that mean.
  int pause_ = 0;      ///< Frames for which nothing is learnt.
};

}  // namespace csrt_guard
