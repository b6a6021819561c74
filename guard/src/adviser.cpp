#include "adviser.h"

#include <algorithm>
#include <cmath>

#include "boxes.h"

namespace csrt_guard {
namespace {

constexpr double kTrusted = 0.3;       // score below which an opinion does not say where the target is
constexpr double kVouching = 0.45;     // score from which it speaks for a target that changes its colours
constexpr double kStep = 0.20;         // diagonals that a target may be from where it should be: others are farther ...
constexpr double kStepPerMiss = 0.02;  // ... and more for every frame that it was not seen
constexpr double kStepMost = 0.6;
constexpr int kGap = 25;            // frames: a target that was not seen for longer has to be found anew
constexpr int kBackFrames = 2;      // in which it must be seen after a gap
constexpr double kTogether = 0.4;   // overlap from which two boxes are on one target
constexpr double kNoWorse = 0.15;   // margin that the opinion's box may be less like the target than the tracker's
constexpr int kPartedAtLeast = 2;   // frames in a row before an opinion that is not sure starts a tracker over
constexpr int kPartedFrames = 3;    // so many in a row before the opinion goes where the tracker is
constexpr double kItself = 0.88;    // what the looks of one person have in common from frame to frame, at least
constexpr double kAlike = 0.85;     // margin from which it may look otherwise than that
constexpr double kVeryAlike = 0.9;  // margin of what is taken for a target that was away for long ...
constexpr int kAlikeFrames = 6;     // ... after so many frames
constexpr float kLookRate = 0.1F;
constexpr double kEvenScore = 0.55;  // score from which it is rather the target than another of its kind

// Whether the opinion's box rather than the tracker's shows the target. The logarithm of the odds is the sum of what
// the one has more of than the other, each with its weight, fitted on boxes of walkers:
constexpr double kOfMargin = 2.0;  // likeness to the target
constexpr double kOfLook = 10.0;   // sameness with what the opinion followed of late
constexpr double kOfKind = 0.39;   // unlike those beside the target
constexpr double kAtFirst = 0.28;  // and before that, for the opinion

cv::Rect around(const cv::Point2d& centre, const cv::Size2d& size) {
  return {cvRound(centre.x - size.width / 2), cvRound(centre.y - size.height / 2), std::max(1, cvRound(size.width)),
          std::max(1, cvRound(size.height))};
}

/// How far a point is from the way between two others.
double fromWay(const cv::Point2d& point, const cv::Point2d& from, const cv::Point2d& to) {
  const cv::Point2d way = to - from;
  const double length2 = way.dot(way);
  const double share = length2 > 0.0 ? std::clamp((point - from).dot(way) / length2, 0.0, 1.0) : 0.0;
  return cv::norm(point - (from + share * way));
}

}  // namespace

void Adviser::start(const cv::Mat& frame, const cv::Rect& box) {
  latest_.reset();
  look_.reset();
  chosen_ = false;
  together_ = gap_ = parted_ = alike_ = 0;
  started_ = opinion_ != nullptr && opinion_->start(frame, box);
  motion_.start(box);
  from_ = centreOf(box);
  size_ = startSize_ = box.size();
}

cv::Rect Adviser::limited_(const cv::Rect& found) const {
  return around(centreOf(found), followedSize(size_, found.size(), startSize_));
}

/// Asks where the target should be. True: it is there; a box that jumps is somebody else's.
bool Adviser::follows_(const cv::Mat& frame, const std::optional<cv::Rect>& expected) {
  const int missed = motion_.lost();
  TargetMotion ahead = motion_;
  ahead.miss();
  const bool gone = expected && missed > kGap;
  if (gone) ahead.start(*expected);
  ahead.keepInside(frame.size());
  const cv::Point2d at = centreOf(ahead.box());
  latest_ = opinion_->look(frame, around(at, size_));
  if (latest_) latest_->box = limited_(latest_->box);
  const bool sure = latest_ && latest_->score >= kEvenScore;
  const double allowed =
      (sure ? kStepMost : std::min(kStepMost, kStep + kStepPerMiss * missed)) * std::hypot(size_.width, size_.height);
  return latest_ && latest_->score >= kTrusted && fromWay(centreOf(latest_->box), gone ? at : from_, at) <= allowed;
}

/// Notes whether it was where it should be and looked as it should.
void Adviser::note_(bool seen) {
  if (!seen) {
    motion_.miss();
    if (together_ > 0) gap_ = 0;
    ++gap_;
    together_ = 0;
    return;
  }
  ++together_;
  from_ = centreOf(latest_->box);
  motion_.see(latest_->box);
  size_ = latest_->box.size();
}

/// Whether it looks as it did a moment ago.
bool Adviser::staysItself_(const ColourLook& now, bool held) {
  if (!look_) look_ = now.look;
  const bool itself = sameness(*look_, now.look) >= kItself;
  if (itself || held || now.margin >= kAlike) blend(*look_, now.look, kLookRate);
  return itself;
}

/// Whether the opinion's box, rather than the tracker's, shows the target.
bool Adviser::isRather_(const ColourLook& here, const ColourLook& there) const {
  if (here.margin < there.margin - kNoWorse) return false;
  const double look = sameness(*look_, here.look) - sameness(*look_, there.look);
  return kOfMargin * (here.margin - there.margin) + kOfLook * look + kOfKind * (here.kind - there.kind) + kAtFirst >= 0;
}

Advice Adviser::hear(const cv::Mat& frame, const Answer& told, const std::optional<cv::Rect>& expected,
                     const LookOf& lookOf) {
  chosen_ = false;
  const bool near = follows_(frame, expected);
  const std::optional<ColourLook> here = near ? lookOf(latest_->box) : std::nullopt;
  const bool held = together_ > 0 && latest_ && latest_->score >= kVouching;  // without a gap it may change its looks
  const std::optional<HalfColours> before = look_;
  const bool itself = here && (staysItself_(*here, held) || held);
  note_(here && (itself || here->margin >= kAlike));
  if (together_ == 0) return {told};
  Advice advice{told};
  advice.vouched = itself && latest_->score >= kVouching;
  alike_ = here->margin >= kVeryAlike ? alike_ + 1 : 0;
  advice.back = (together_ >= kBackFrames && gap_ <= kGap) || std::min(alike_, together_) >= kAlikeFrames;
  if (told.seen && told.box && overlap(*told.box, latest_->box) >= kTogether) {
    parted_ = 0;
    return advice;
  }
  ++parted_;
  const std::optional<ColourLook> there = told.seen && told.box ? lookOf(*told.box) : std::nullopt;
  const bool heard = latest_->score >= kEvenScore || parted_ >= kPartedAtLeast;
  if (there && (!heard || !isRather_(*here, *there))) {
    look_ = before;  // it is not the target's
    return {told};
  }
  chosen_ = true;
  advice.answer = {latest_->box, true};
  return advice;
}

std::optional<Opinion> Adviser::confirm(const cv::Mat& frame, const cv::Rect& find) const {
  std::optional<Opinion> opinion = opinion_->look(frame, around(centreOf(find), size_));
  if (!opinion || opinion->score < kTrusted) return std::nullopt;
  opinion->box = limited_(opinion->box);
  return overlap(opinion->box, find) >= kTogether ? opinion : std::nullopt;
}

void Adviser::conclude(Verdict& verdict, const Answer& told) {
  verdict.opinion = latest_;
  if (verdict.restart) {
    isIn_(*verdict.box);
    return;
  }
  if (verdict.state != State::Agreed && verdict.state != State::Reacquired) return;  // the latter: on trial
  if (chosen_) {
    verdict.state = State::Reacquired;
    verdict.restart = true;
    verdict.reason = "the tracker is off the target: likely it is where the second opinion sees it";
  } else if (told.box && (parted_ >= kPartedFrames || (together_ == 0 && gap_ >= kPartedFrames))) {
    isIn_(*told.box);
  }
}

void Adviser::isIn_(const cv::Rect& box) {
  size_ = limited_(box).size();
  motion_.see(around(centreOf(box), size_));
  from_ = centreOf(box);
  parted_ = 0;
}

}  // namespace csrt_guard
