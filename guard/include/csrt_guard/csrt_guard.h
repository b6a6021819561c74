// A guard beside a tracker: it watches whether the tracker's box still shows the target, says so, and finds the target
// again when it does not. It knows the tracker only by its answers, so it works with any that can be started on a box.
//
//   csrt_guard::Guard guard;
//   guard.start(frame, box);                          // the frame and the box that the tracker was started with
//   ...                                               // per frame: the tracker's answer, then
//   csrt_guard::Verdict verdict = guard.judge(frame, answer);
//   if (verdict.restart) tracker.init(frame, *verdict.box);
//
// Pixels:   boxes are full-frame pixels; frames are 8-bit with 1, 3 (BGR) or 4 (BGRA) channels.
// Threads:  one call at a time; guards share nothing.
// Bounds:   the same calls give the same answers everywhere. Memory is that of a few small pictures, whatever the
// frame. Errors:   a frame that cannot be judged is no error: the tracker's answer is passed on, with that as the
// reason.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <optional>

#include "csrt_guard/second_opinion.h"

namespace csrt_guard {

/// What the tracker said about one frame.
struct Answer {
  std::optional<cv::Rect> box;  ///< Full-frame pixels; may lie anywhere.
  bool seen = false;            ///< The tracker claims to see the target, not only to predict it.
};

/// What the guard makes of the target.
enum class State {
  Unguarded,  ///< Nothing can be judged (not started, no picture, a target like its surroundings): passed on as it is.
  Agreed,     ///< The tracker's box shows the target.
  Doubted,  ///< The tracker's box no longer looks like the target, or it has none: for a few frames this is waited out.
  Searching,  ///< The target is lost and looked for; a box is a prediction.
  /// Something that looks like the target was found, and the tracker is started there. Likely, never certain: a find
  /// that is not `seen` is on trial, worth following, not to be counted on; it stays in this state until that is over.
  Reacquired,
};

/// "unguarded", "agreed", ...
const char* name(State state);

/// What it decided on one frame, and on what grounds.
struct Verdict {
  State state = State::Unguarded;
  std::optional<cv::Rect> box;  ///< What to report, full-frame pixels; empty: nothing.
  bool seen = false;            ///< Whether `box` may be called seen; else it is a prediction.
  bool restart = false;         ///< Start the tracker over on `box` of this frame.
  const char* reason = "";      ///< Why, in words; points to a constant.
  // The evidence. Likeness is that of colours with the target's so far: 0 nothing in common, 1 the same.
  std::optional<double> likeness;  ///< Of the box; empty where there was none to look at.
  std::optional<double> usual;     ///< What the target has on average.
  std::optional<double> around;    ///< What the places beside the target have on average.
  std::optional<double> belief;    ///< Of a find: how likely it is the target rather than something else, [0, 1].
  std::optional<Opinion> opinion;  ///< What the second opinion said, its size limited; empty: none, or nothing.
  int framesLost = 0;              ///< Frames since the guard last agreed.
};

/// Likeness is judged as a margin, on a scale of the target's own: 0 is what its surroundings have, 1 what it usually
/// has. Rates are shares of what is new, a frame.
struct Settings {
  double doubtBelow = 0.5;     ///< Margin: closer to the surroundings than to the target.
  int doubtFrames = 3;         ///< So many doubtful frames in a row make a loss.
  double driftRate = 0.15;     ///< Of a mean of the margin ...
  double driftBelow = 0.6;     ///< ... which is doubtful as well when it falls below this.
  double sureFrom = 0.8;       ///< A box of this margin says where the target goes and what it looks like of late.
  double recentRate = 0.1;     ///< Of what it looks like of late.
  double believe = 0.4;        ///< How likely a find must be the target, rather than anything else ...
  double among = 0.75;         ///< ... and how much of that it must have of all finds together.
  int confirmFrames = 4;       ///< Frames for which a find of likelihood 0.75 must be the likeliest ...
  double patience = 3.5;       ///< ... and more for a less likely one, by this power of how much less ...
  double sure = 0.95;          ///< ... but from this likelihood on ...
  int sureFrames = 2;          ///< ... so many.
  int disputedFrames = 25;     ///< But so many where the tracker claims to see the target near where it should be ...
  double disputedFrom = 0.25;  ///< ... with this margin or more: it looks at least a little like the target.
  double provenFrom = 0.99;    ///< A find that is less likely than this is on trial, not called seen, ...
  int trialFrames = 15;        ///< ... until the guard has agreed with the tracker in so many frames; 0: never.
  /// A lost target is predicted for so many frames; then the tracker's own box is reported, not seen, if the tracker
  /// claims it or it looks at least a little like the target.
  int predictFrames = 10;
  double usualFrom = 0.85;    ///< A box of this margin teaches what likeness is usual ...
  double learnFrom = 0.75;    ///< ... and one of this what the target looks like in the long run: the mean of all that
  double learnRate = 0.02;    ///< was seen, later at this rate; 0: only the first picture counts.
  int checkEvery = 3;         ///< Every so many frames what else looks like the target is remembered; 0: never.
  double othersWithin = 2.5;  ///< How far from the target that is looked for, in its diagonals.
  int takeoverFrames = 4;     ///< Frames in a row in which a box must go where somebody else was going; 0: never.
  double vouchedFrom = 0.15;  ///< Instead of doubtBelow, where the second opinion goes along with a box.
  double minContrast = 0.08;  ///< Usual likeness less that of the surroundings from which the guard can judge.
};

/// Watches one target. Not thread-safe; one call per frame.
class Guard {
 public:
  explicit Guard(const Settings& settings = Settings());
  ~Guard();
  Guard(Guard&&) noexcept;
  Guard& operator=(Guard&&) noexcept;

  /// From the next start() on somebody else is asked about every frame, and what it says is weighed; null: nobody.
  void consult(std::unique_ptr<SecondOpinion> opinion);

  /// Begins, or begins anew, with the target in `box`. False: nothing there to judge by; judge() then passes answers
  /// on.
  bool start(const cv::Mat& frame, const cv::Rect& box);

  /// Judges the tracker's answer for this frame. Never throws for a picture or a box, however wrong.
  Verdict judge(const cv::Mat& frame, const Answer& answer);

  /// The target and the frame at the start had no colour, as in infrared: it is judged by brightness alone, which
  /// tells less apart.
  bool colourless() const;

  /// How like the target a box of this frame is, as in Verdict::likeness; empty where there is nothing to look at.
  std::optional<double> likenessOf(const cv::Mat& frame, const cv::Rect& box) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace csrt_guard
