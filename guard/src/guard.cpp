#include <algorithm>
#include <array>
#include <cmath>

#include "colour_model.h"
#include "csrt_guard/csrt_guard.h"
#include "target_motion.h"
#include "target_search.h"

namespace csrt_guard {
namespace {

constexpr std::array<const char*, 5> kNames = {"unguarded", "agreed", "doubted", "searching", "reacquired"};
constexpr double kSurroundings = 3.0;  // sides of the neighbourhood that is looked at, in box sides
constexpr int kResizedAfter = 20;     // frames without the target after which it may look smaller or larger
constexpr double kLargest = 1e6;       // pixels; larger numbers are no box

bool usable(const cv::Mat& frame) {
  return !frame.empty() && frame.dims == 2 && frame.depth() == CV_8U &&
         (frame.channels() == 1 || frame.channels() == 3 || frame.channels() == 4);
}

bool usable(const cv::Rect& box) {
  return box.width > 1 && box.height > 1 && box.width < kLargest && box.height < kLargest &&
         std::abs(static_cast<double>(box.x)) < kLargest && std::abs(static_cast<double>(box.y)) < kLargest;
}

cv::Rect grown(const cv::Rect2d& box, double by) {
  return cv::Rect2d(box.x - box.width * (by - 1) / 2, box.y - box.height * (by - 1) / 2, box.width * by,
                    box.height * by);
}

cv::Rect wholePixels(const cv::Rect2d& box) {
  return {cvRound(box.x), cvRound(box.y), std::max(1, cvRound(box.width)), std::max(1, cvRound(box.height))};
}

double diagonal(const cv::Rect2d& box) {
  return std::hypot(box.width, box.height);
}

double distance(const cv::Rect2d& a, const cv::Rect2d& b) {
  return cv::norm(TargetMotion::centre(a) - TargetMotion::centre(b));
}

/// A mean that moves fast at first and slowly later.
class SlowMean {
 public:
  explicit SlowMean(double slowest) : slowest_(slowest) {}
  void start(double value, int weight) {
    value_ = value;
    seen_ = weight;
  }
  void add(double value) {
    ++seen_;
    value_ += std::max(slowest_, 1.0 / seen_) * (value - value_);
  }
  double value() const { return value_; }

 private:
  double slowest_;
  double value_ = 0.0;
  int seen_ = 0;
};

}  // namespace

const char* name(State state) {
  return kNames.at(static_cast<std::size_t>(state));
}

class Guard::Impl {
 public:
  explicit Impl(const Settings& settings) : settings_(settings) {}

  bool start(const cv::Mat& frame, const cv::Rect& box) {
    started_ = false;
    if (!usable(frame) || !usable(box)) return false;
    const cv::Rect inside = box & cv::Rect({}, frame.size());
    if (inside.area() < box.area() / 3.0 || inside.area() < 16) return false;
    const double scale = workScale(box.size());
    const cv::Rect part = grown(box, kSurroundings) & cv::Rect({}, frame.size());
    const cv::Mat bgr = shrunkenBgr(frame, part, scale);
    const cv::Rect2d inView((box.x - part.x) * scale, (box.y - part.y) * scale, box.width * scale, box.height * scale);
    palette_.learn(bgr, wholePixels(inView));
    const CodedView view = viewOf(frame, part, scale, palette_);
    if (!model_.learn(view, view.toView(box), palette_)) return false;
    startSize_ = size_ = box.size();
    motion_.start(box);
    usual_.start(0.9, 2);
    around_.start(0.3, 0);
    lookAround_(view, box);
    lost_ = doubts_ = confirmed_ = learnt_ = drifts_ = 0;
    return started_ = true;
  }

  std::optional<double> likenessOf(const cv::Mat& frame, const cv::Rect& box) const {
    if (!started_ || !usable(frame) || !usable(box)) return std::nullopt;
    const CodedView view = viewOf(frame, box, workScale(box.size()), palette_);
    if (view.codes.empty()) return std::nullopt;
    return model_.likenessAt(view, view.toView(box), palette_);
  }

  Verdict judge(const cv::Mat& frame, const Answer& answer) {
    if (!started_) return passedOn_(answer, "not started");
    if (!usable(frame)) return passedOn_(answer, "no picture to judge by");
    const Look look = lookAt_(frame, answer);
    if (usual_.value() - around_.value() < settings_.minContrast) {
      if (look.likeness && answer.seen) learn_(look, *answer.box);
      return passedOn_(answer, "the target looks like its surroundings");
    }
    return lost_ == 0 ? follow_(frame, answer, look) : search_(frame, answer, look);
  }

 private:
  struct Look {
    std::optional<double> likeness;
    double margin = 0.0;  ///< 0: as the surroundings, 1: as usual.
    CodedView view;
  };

  double marginOf_(double likeness) const {
    return (likeness - around_.value()) / std::max(1e-3, usual_.value() - around_.value());
  }

  Look lookAt_(const cv::Mat& frame, const Answer& answer) {
    Look look;
    if (!answer.box || !usable(*answer.box)) return look;
    look.view = viewOf(frame, grown(*answer.box, kSurroundings), workScale(answer.box->size()), palette_);
    if (look.view.codes.empty()) return look;
    look.likeness = model_.likenessAt(look.view, look.view.toView(*answer.box), palette_);
    if (look.likeness) look.margin = marginOf_(*look.likeness);
    return look;
  }

  /// The likeness of places beside the target, none of which overlaps it.
  void lookAround_(const CodedView& view, const cv::Rect2d& box) {
    double sum = 0.0;
    int places = 0;
    for (const cv::Point2d& step : {cv::Point2d(-1, 0), {1, 0}, {0, -1}, {0, 1}}) {
      const cv::Rect2d beside = box + cv::Point2d(step.x * box.width, step.y * box.height);
      const std::optional<double> likeness = model_.likenessAt(view, view.toView(beside), palette_);
      if (!likeness) continue;
      sum += *likeness;
      ++places;
    }
    if (places > 0) around_.add(sum / places);
  }

  void learn_(const Look& look, const cv::Rect2d& box) {
    if (look.margin >= settings_.acceptNear) usual_.add(*look.likeness);
    if (look.margin >= settings_.learnFrom && learnt_ < settings_.learnFrames && settings_.learnRate > 0.0) {
      ++learnt_;
      const std::optional<HalfColours> colours = coloursIn(look.view, look.view.toView(box), palette_);
      if (colours) model_.blend(*colours, static_cast<float>(std::max(settings_.learnRate, 1.0 / (learnt_ + 1))));
    }
    lookAround_(look.view, box);
    motion_.see(box);
    size_ = box.size();
  }

  Verdict follow_(const cv::Mat& frame, const Answer& answer, const Look& look) {
    const bool alike = look.likeness && look.margin >= settings_.doubtBelow;
    if (answer.seen && alike) {
      doubts_ = 0;
      if (driftedFrom_(frame, look, *answer.box)) return reacquire_(candidate_);
      learn_(look, *answer.box);
      return verdict_(State::Agreed, answer.box, true, "the tracker's box shows the target", look);
    }
    motion_.miss();
    if (++doubts_ >= settings_.doubtFrames) {
      lost_ = doubts_ - 1;
      return search_(frame, answer, look);
    }
    return verdict_(State::Doubted, answer.box, false,
                    answer.seen ? "the tracker's box looks little like the target" : "the tracker does not see it",
                    look);
  }

  /// Whether a place nearby has been much more like the target for a while; it is then the candidate.
  bool driftedFrom_(const cv::Mat& frame, const Look& look, const cv::Rect2d& box) {
    if (settings_.checkEvery <= 0 || ++sinceCheck_ < settings_.checkEvery) return false;
    sinceCheck_ = 0;
    if (look.margin > 1.0 - settings_.betterBy) {
      drifts_ = 0;
      return false;
    }
    const CodedView view = viewOf(frame, grown(box, 5.0), workScale(size_), palette_);
    const std::vector<Place> places = findPlaces(view, size_, false, model_, palette_);
    if (places.empty() || marginOf_(places.front().likeness) < std::max(settings_.acceptNear, look.margin + settings_.betterBy)) {
      drifts_ = 0;
      return false;
    }
    candidate_ = places.front();
    return ++drifts_ >= settings_.confirmFrames;
  }

  Verdict search_(const cv::Mat& frame, const Answer& answer, const Look& look) {
    motion_.miss();
    ++lost_;
    const double reach = std::min(6.0, 0.8 + 0.12 * lost_) * diagonal(motion_.box());
    const bool near = answer.box && distance(*answer.box, motion_.box()) <= reach;
    if (answer.seen && look.likeness && near && look.margin >= settings_.acceptNear) {
      if (++regained_ >= settings_.confirmFrames) {
        const Verdict back = verdict_(State::Agreed, answer.box, true, "the tracker's box shows the target again", look);
        lost_ = doubts_ = regained_ = confirmed_ = drifts_ = 0;
        learn_(look, *answer.box);
        return back;
      }
    } else {
      regained_ = 0;
    }
    const std::optional<Place> found = bestPlace_(frame, reach);
    if (!found) {
      confirmed_ = 0;
      return predicted_("lost: nothing near looks enough like the target", look);
    }
    const bool again = confirmed_ > 0 && distance(found->box, candidate_.box) < 0.35 * diagonal(found->box);
    confirmed_ = again ? confirmed_ + 1 : 1;
    candidate_ = *found;
    if (confirmed_ < settings_.confirmFrames) return predicted_("lost: a find must hold for another frame", look);
    return reacquire_(*found);
  }

  std::optional<Place> bestPlace_(const cv::Mat& frame, double reach) {
    const cv::Rect2d expected = motion_.box();
    const cv::Point2d c = TargetMotion::centre(expected);
    const cv::Rect part = cv::Rect2d(c.x - reach - size_.width / 2, c.y - reach - size_.height / 2,
                                     2 * reach + size_.width, 2 * reach + size_.height);
    const CodedView view = viewOf(frame, part, workScale(size_), palette_);
    std::optional<Place> best;
    double bestValue = 0.0;
    for (const Place& place : findPlaces(view, size_, lost_ > kResizedAfter, model_, palette_)) {
      const double far = distance(place.box, expected) / std::max(1.0, reach);
      const double needed = settings_.acceptNear + (settings_.acceptFar - settings_.acceptNear) * std::min(1.0, far);
      if (marginOf_(place.likeness) < needed) continue;
      const double value = marginOf_(place.likeness) - needed + settings_.standOut * place.contrast;
      if (best && value <= bestValue) continue;
      bestValue = value;
      best = place;
    }
    return best;
  }

  Verdict reacquire_(const Place& place) {
    motion_.see(place.box);
    size_ = place.box.size();
    Verdict verdict;
    verdict.state = State::Reacquired;
    verdict.box = wholePixels(place.box);
    verdict.seen = verdict.restart = true;
    verdict.reason = "found: looks like the target, twice at one place";
    verdict.likeness = place.likeness;
    verdict.usual = usual_.value();
    verdict.around = around_.value();
    verdict.framesLost = lost_;
    lost_ = doubts_ = regained_ = confirmed_ = drifts_ = 0;
    return verdict;
  }

  Verdict predicted_(const char* reason, const Look& look) const {
    const bool still = lost_ <= settings_.predictFrames;
    Verdict verdict = verdict_(State::Searching, std::nullopt, false, reason, look);
    if (still) verdict.box = wholePixels(motion_.box());
    return verdict;
  }

  Verdict verdict_(State state, const std::optional<cv::Rect>& box, bool seen, const char* reason,
                   const Look& look) const {
    Verdict verdict;
    verdict.state = state;
    verdict.box = box;
    verdict.seen = seen;
    verdict.reason = reason;
    verdict.likeness = look.likeness;
    verdict.usual = usual_.value();
    verdict.around = around_.value();
    verdict.framesLost = std::max(lost_, doubts_);
    return verdict;
  }

  Verdict passedOn_(const Answer& answer, const char* reason) const {
    Verdict verdict;
    verdict.box = answer.box;
    verdict.seen = answer.seen;
    verdict.reason = reason;
    return verdict;
  }

  Settings settings_;
  bool started_ = false;
  Palette palette_;
  ColourModel model_;
  TargetMotion motion_;
  cv::Size2d startSize_;
  cv::Size2d size_;
  SlowMean usual_{0.02};
  SlowMean around_{0.05};
  int lost_ = 0;
  int learnt_ = 0;
  int sinceCheck_ = 0;
  int drifts_ = 0;
  int doubts_ = 0;
  int regained_ = 0;
  int confirmed_ = 0;
  Place candidate_;
};

Guard::Guard(const Settings& settings) : impl_(std::make_unique<Impl>(settings)) {}
Guard::~Guard() = default;
Guard::Guard(Guard&&) noexcept = default;
Guard& Guard::operator=(Guard&&) noexcept = default;

bool Guard::start(const cv::Mat& frame, const cv::Rect& box) {
  return impl_->start(frame, box);
}

std::optional<double> Guard::likenessOf(const cv::Mat& frame, const cv::Rect& box) const {
  return impl_->likenessOf(frame, box);
}

Verdict Guard::judge(const cv::Mat& frame, const Answer& answer) {
  return impl_->judge(frame, answer);
}

}  // namespace csrt_guard
