#include "made_losses.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace bench {
namespace {

constexpr long kRunUp = 40;     // frames before the loss
constexpr long kPatience = 60;  // frames after the return
constexpr long kJump = 25;      // frames that a jump leaves out
constexpr std::size_t kTargets = 4;

/// Where the view has moved to, as a shift of all that is in it.
cv::Point2d shiftOf(const cv::Size& size) {
  return {-size.width / 5.0, size.height / 12.0};
}

cv::Mat moved(const cv::Mat& frame) {
  const cv::Point2d by = shiftOf(frame.size());
  const cv::Mat shift = (cv::Mat_<double>(2, 3) << 1, 0, by.x, 0, 1, by.y);
  cv::Mat picture;
  cv::warpAffine(frame, picture, shift, frame.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  return picture;
}

}  // namespace

cv::Mat covered(const cv::Mat& frame, const cv::Rect2d& target) {
  cv::Mat picture = frame.clone();
  const cv::Rect board(cvRound(target.x - target.width * 0.3), cvRound(target.y - target.height * 0.1),
                       cvRound(target.width * 1.6), cvRound(target.height * 1.2));
  cv::rectangle(picture, board, cv::Scalar(70, 95, 120), cv::FILLED);
  return picture;
}

long MadeLoss::first() const {
  return begin - kRunUp;
}

long MadeLoss::end() const {
  return back() + kPatience;
}

host::SourceFrame MadeLoss::frame(long i) const {
  const bool after = i >= back();
  const bool during = i >= begin && !after;
  const long at = event == Event::Jump && i >= begin ? i + kJump : i;
  host::SourceFrame frame = footage->at(std::min(at, footage->count() - 1));
  frame.index = i;
  if (during && event == Event::Black) {  // a picture of its own: zeros() would be written into the footage's pixels
    frame.bgr = cv::Mat(frame.bgr.size(), frame.bgr.type(), cv::Scalar::all(0.0));
  }
  if (during && (event == Event::Covered || event == Event::Elsewhere)) {
    if (const auto there = bench::truthAt(*truth, at)) frame.bgr = covered(frame.bgr, *there);
  }
  if (after && event == Event::Elsewhere) frame.bgr = moved(frame.bgr);
  return frame;
}

std::optional<cv::Rect2d> MadeLoss::truthAt(long i) const {
  const bool after = i >= back();
  if (i >= begin && !after) return std::nullopt;
  auto there = bench::truthAt(*truth, event == Event::Jump && after ? i + kJump : i);
  if (there && after && event == Event::Elsewhere) *there += shiftOf(footage->size());
  return there;
}

LossOutcome suffer(const MadeLoss& loss, const LossSubject& subject) {
  LossOutcome outcome;
  const auto given = loss.truthAt(loss.first());
  if (!given) return outcome;
  subject.start(loss.frame(loss.first()), whole(*given));
  for (long i = loss.first() + 1; i < loss.end(); ++i) {
    const auto truth = loss.truthAt(i);
    if (i >= loss.back() && !truth) break;
    const host::FollowerAnswer answer = subject.step(loss.frame(i));
    if (!answer.seen || !answer.box) continue;
    if (i >= loss.begin && i < loss.back()) ++outcome.falseBoxes;
    if (i < loss.back() || host::overlapOf(*truth, *answer.box) < host::kOnTargetIou) continue;
    outcome.delay = static_cast<int>(i - loss.back());
    break;
  }
  return outcome;
}

LossScenes::LossScenes(const Footage& clip, const std::vector<host::TruthTarget>& targets, const std::string& second,
                       const std::string& secondTruth)
    : second_(second, {}), targets_(targets) {
  std::stable_sort(targets_.begin(), targets_.end(),
                   [](const auto& a, const auto& b) { return a.marks.size() > b.marks.size(); });
  targets_.resize(std::min(targets_.size(), kTargets));
  targets_.push_back(host::readTruth(secondTruth, host::TruthOptions(), "crossing").front());
  for (std::size_t i = 0; i + 1 < targets_.size(); ++i) {
    const long first = targets_[i].marks.front().frame + kRunUp;
    add_(clip, targets_[i], first + (targets_[i].marks.back().frame - first) / 4, false);
  }
  add_(second_, targets_.back(), kRunUp, true);
}

void LossScenes::add_(const Footage& footage, const host::TruthTarget& target, long begin, bool elsewhere) {
  const auto add = [&](const char* what, Event event, long hidden) {
    losses_.push_back({target.name, what, &footage, &target, begin, hidden, event});
  };
  add("covered-15", Event::Covered, 15);
  add("covered-30", Event::Covered, 30);
  add("covered-60", Event::Covered, 60);
  add("black-8", Event::Black, 8);
  add("jump-25", Event::Jump, 0);
  if (elsewhere) add("elsewhere-30", Event::Elsewhere, 30);
}

}  // namespace bench
