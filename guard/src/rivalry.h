// How often something else looks as much like the target as a find does, and what follows for the find.
#pragma once

#include <array>

namespace csrt_guard {

/// What else there is around a target, by how much like it it looks. Margins: 0 as its surroundings, 1 as it usually
/// is.
class Rivalry {
 public:
  void clear();

  /// An area was looked at in which the target was not (squares of its diagonal); then rival() for each place there
  /// that looks like it.
  void looked(double area);
  void rival(double margin);

  /// How many places that look this much like the target are to be expected, per square diagonal and 1 of the margin.
  double density(double margin) const;

 private:
  static constexpr int kSteps = 16;  // of the margin
  std::array<double, kSteps> seen_{};
  double area_ = 0.0;
};

/// Evidence for one place. Lengths in diagonals of the target.
struct Evidence {
  double margin = 0.0;           ///< How like the target.
  double same = 1.0;             ///< How much it looks as the target did of late; see lookFactor().
  double distance = 0.0;         ///< From where the target was expected when the place was first found ...
  int lost = 0;                  ///< ... so many frames after the target's last sight.
  double others = 0.0;           ///< How likely somebody known was there instead, see densityOf().
  bool speedKnown = false;       ///< The place was followed for long enough to have one.
  double speedDifference = 0.0;  ///< Between the place's and the target's last velocity, diagonals a frame.
};

/// How likely the target is found there and looks like that: a density as of Rivalry.
double ownDensity(const Evidence& evidence);

/// How much more likely the place is the target than something else: odds, 0 or more.
double oddsOf(const Evidence& evidence, const Rivalry& rivalry);

}  // namespace csrt_guard
