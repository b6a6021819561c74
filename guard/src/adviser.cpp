#include "adviser.h"

#include <algorithm>
#include <cmath>

namespace csrt_guard {
namespace {

constexpr double kTrusted = 0.3;    // score below which an opinion does not say where the target is
constexpr double kTogether = 0.4;   // overlap from which two boxes are on one target
constexpr double kNoWorse = 0.15;   // margin that the opinion's box may be less like the target than the tracker's
constexpr int kPartedFrames = 3;    // so many in a row before the opinion goes where the tracker is
constexpr double kResize = 1.02;    // a frame
constexpr double kSmallest = 0.45;  // of the size at the start
constexpr double kBiggest = 2.2;
constexpr double kEvenScore = 0.55;   // says nothing about who it is ...
constexpr double kScoreWeight = 6.0;  // ... and 0.17 more is e times likelier to be the target
constexpr double kScoreFactorMost = 6.0;

double overlap(const cv::Rect& a, const cv::Rect& b) {
  const double common = (a & b).area();
  const double together = static_cast<double>(a.area()) + b.area() - common;
  return together > 0.0 ? common / together : 0.0;
}

cv::Rect around(const cv::Point2d& centre, const cv::Size2d& size) {
  return {cvRound(centre.x - size.width / 2), cvRound(centre.y - size.height / 2), std::max(1, cvRound(size.width)),
          std::max(1, cvRound(size.height))};
}

cv::Point2d centreOf(const cv::Rect& box) {
  return {box.x + box.width / 2.0, box.y + box.height / 2.0};
}

}  // namespace

double scoreFactor(double score) {
  return std::clamp(std::exp(kScoreWeight * (score - kEvenScore)), 1.0 / kScoreFactorMost, kScoreFactorMost);
}

void Adviser::start(const cv::Mat& frame, const cv::Rect& box) {
  latest_.reset();
  chosen_ = false;
  parted_ = 0;
  started_ = opinion_ != nullptr && opinion_->start(frame, box);
  at_ = box;
  size_ = startSize_ = box.size();
}

cv::Rect Adviser::limited_(const cv::Rect& found) const {
  const auto follow = [](double size, double to, double start) {
    return std::clamp(std::clamp(to, size / kResize, size * kResize), kSmallest * start, kBiggest * start);
  };
  return around(centreOf(found), {follow(size_.width, found.width, startSize_.width),
                                  follow(size_.height, found.height, startSize_.height)});
}

Answer Adviser::hear(const cv::Mat& frame, const Answer& told, const std::optional<cv::Rect>& expected,
                     const MarginOf& margin) {
  chosen_ = false;
  latest_ = opinion_->look(frame, at_);
  if (latest_ && latest_->score < kTrusted && expected) {
    const std::optional<Opinion> there = opinion_->look(frame, around(centreOf(*expected), size_));
    if (there && there->score > latest_->score) latest_ = there;
  }
  if (!latest_) return told;
  latest_->box = limited_(latest_->box);
  if (latest_->score < kTrusted) return told;
  at_ = latest_->box;
  if (told.seen && told.box && overlap(*told.box, at_) >= kTogether) {
    parted_ = 0;
    return told;
  }
  ++parted_;
  const std::optional<double> here = margin(at_);
  if (!here) return told;
  const std::optional<double> there = told.seen && told.box ? margin(*told.box) : std::nullopt;
  if (there && *here < *there - kNoWorse) return told;
  chosen_ = true;
  return {at_, true};
}

void Adviser::conclude(Verdict& verdict, const Answer& told) {
  verdict.opinion = latest_;
  if (verdict.restart) {
    follow_(*verdict.box);
    return;
  }
  if (verdict.state != State::Agreed) return;
  if (chosen_) {
    verdict.state = State::Reacquired;
    verdict.restart = true;
    verdict.reason = "the tracker is off the target: likely it is where the second opinion sees it";
    follow_(*verdict.box);
  } else if (told.box && (parted_ >= kPartedFrames || !latest_ || latest_->score < kTrusted)) {
    follow_(*told.box);
  } else if (latest_) {
    size_ = latest_->box.size();
  }
}

/// The target is in this box.
void Adviser::follow_(const cv::Rect& box) {
  size_ = limited_(box).size();
  at_ = around(centreOf(box), size_);
  parted_ = 0;
}

}  // namespace csrt_guard
