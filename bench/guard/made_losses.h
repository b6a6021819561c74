// Losses made from footage: something happens to the picture while a target is followed, and the target is back later.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "evaluation/follower.h"
#include "evaluation/metrics.h"
#include "footage.h"

namespace bench {

/// What happens.
enum class Event {
  Covered,   ///< A board stands where the target is.
  Black,     ///< Black frames.
  Jump,      ///< The footage goes on 25 frames later.
  Elsewhere  ///< Covered; meanwhile the view moves by a fifth of its width.
};

/// A copy of a frame in which a board stands before the target, full-frame pixels.
cv::Mat covered(const cv::Mat& frame, const cv::Rect2d& target);

/// One loss. Its scene has frames of its own numbers, which are the footage's up to the event.
struct MadeLoss {
  std::string target;                        ///< Whose it is.
  std::string what;                          ///< Such as "covered-30".
  const Footage* footage = nullptr;          ///< Must outlive this.
  const host::TruthTarget* truth = nullptr;  ///< Likewise.
  long begin = 0;                            ///< The first frame that shows nothing of the target.
  long hidden = 0;                           ///< So many do.
  Event event = Event::Covered;

  long first() const;                               ///< Where the target is given to the tracker.
  long back() const { return begin + hidden; }      ///< The first frame that shows it again.
  long end() const;                                 ///< Behind the last frame that is waited for.
  host::SourceFrame frame(long i) const;            ///< i from first() to end() - 1.
  std::optional<cv::Rect2d> truthAt(long i) const;  ///< Empty while it is hidden, or behind its last mark.
};

/// What came of a loss.
struct LossOutcome {
  int delay = -1;      ///< Frames from the return to the first box called seen that is on the target; -1: none was.
  int falseBoxes = 0;  ///< Boxes called seen while it was hidden.
};

/// Whatever follows a target: told where it is in one frame, then asked for each frame after that.
struct LossSubject {
  std::function<void(const host::SourceFrame&, const cv::Rect&)> start;
  std::function<host::FollowerAnswer(const host::SourceFrame&)> step;
};

LossOutcome suffer(const MadeLoss& loss, const LossSubject& subject);

/// The scenes and all that they refer to.
class LossScenes {
 public:
  /// The four targets with the most marks lose sight five times each, at a third of their tracks; the second sequence's
  /// target six times. @throws HostError when the second sequence or its truth cannot be read
  /// @param targets  fitted to `clip`; both must outlive this
  LossScenes(const Footage& clip, const std::vector<host::TruthTarget>& targets, const std::string& second,
             const std::string& secondTruth);
  const std::vector<MadeLoss>& all() const { return losses_; }

 private:
  void add_(const Footage& footage, const host::TruthTarget& target, long begin, bool elsewhere);

  Footage second_;
  std::vector<host::TruthTarget> targets_;
  std::vector<MadeLoss> losses_;
};

}  // namespace bench
