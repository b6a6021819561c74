#include <algorithm>
#include <array>
#include <cmath>

#include "adviser.h"
#include "backdrop.h"
#include "boxes.h"
#include "colour_model.h"
#include "csrt_guard/csrt_guard.h"
#include "frame_check.h"
#include "identity.h"
#include "place_tracks.h"
#include "rivalry.h"
#include "takeover.h"
#include "target_motion.h"
#include "target_search.h"

namespace csrt_guard {
namespace {

constexpr std::array<const char*, 5> kNames = {"unguarded", "agreed", "doubted", "searching", "reacquired"};
constexpr double kSurroundings = 3.0;  // sides of the neighbourhood that is looked at, in box sides
constexpr int kResizedAfter = 20;      // frames without the target after which it may look smaller or larger
constexpr int kRolledBack = 15;        // frames at most from which the last sure sight still says where the target is
constexpr double kHope = 0.3;          // likelihood from which a find is worth a second opinion
constexpr double kMayBeIt = 0.7;       // margin from which a place is not taken for somebody known who looks less alike
constexpr double kTouches = 0.01;      // share of a box from which a place beside the target is a part of it
constexpr double kElsewhere = 0.5;     // share of a find that a box elsewhere may cover
constexpr double kSteady = 0.15;       // diagonals that a picture may have moved for the camera to stand still
constexpr double kLargest = 1e6;       // pixels; larger numbers are no box

bool usable(const cv::Rect& box) {
  return box.width > 1 && box.height > 1 && box.width < kLargest && box.height < kLargest &&
         std::abs(static_cast<double>(box.x)) < kLargest && std::abs(static_cast<double>(box.y)) < kLargest;
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

  void consult(std::unique_ptr<SecondOpinion> opinion) { adviser_.consult(std::move(opinion)); }

  bool start(const cv::Mat& frame, const cv::Rect& box) {
    started_ = false;
    if (!isPicture(frame) || !usable(box)) return false;
    const cv::Rect inside = box & cv::Rect({}, frame.size());
    if (inside.area() < box.area() / 3.0 || inside.area() < 16) return false;
    const double scale = workScale(box.size());
    const cv::Rect part = grown(box, kSurroundings) & cv::Rect({}, frame.size());
    const cv::Mat bgr = shrunkenBgr(frame, part, scale);
    const cv::Rect2d inView((box.x - part.x) * scale, (box.y - part.y) * scale, box.width * scale, box.height * scale);
    frames_.start(frame, bgr);
    palette_.learn(bgr, wholePixels(inView));
    const CodedView view = viewOf(frame, part, scale, palette_);
    if (!model_.learn(view, view.toView(box), palette_)) return false;
    recent_ = *coloursIn(view, view.toView(box), palette_);
    identity_.start(recent_);
    size_ = startSize_ = box.size();
    motion_.start(box);
    usual_.start(0.9, 2);
    around_.start(0.3, 0);
    lookAround_(view, box);
    lost_ = doubts_ = learnt_ = sinceCheck_ = trial_ = 0;
    steady_ = 1.0;
    sure_ = motion_;
    tracks_.clear();
    takeover_.clear();
    backdrop_.clear();
    takenOver_ = false;
    rivalry_.clear();
    hope_.reset();
    adviser_.start(frame, box);
    advice_ = {};
    return started_ = true;
  }

  bool colourless() const { return started_ && frames_.colourless(); }

  std::optional<double> likenessOf(const cv::Mat& frame, const cv::Rect& box) const {
    if (!started_ || !isPicture(frame) || !usable(box)) return std::nullopt;
    const CodedView view = viewOf(frame, box, workScale(box.size()), palette_);
    if (view.codes.empty()) return std::nullopt;
    return model_.likenessAt(view, view.toView(box), palette_);
  }

  Verdict judge(const cv::Mat& frame, const Answer& answer) {
    if (!started_) return passedOn_(answer, "not started");
    if (const char* fault = frames_.fault(frame)) return passedOn_(answer, fault);
    if (!adviser_.present()) return judgeAlone_(frame, answer);
    std::optional<cv::Rect> expected;
    if (lost_ > 0) expected = wholePixels(hope_.value_or(motion_.box()));
    hope_.reset();
    advice_ = adviser_.hear(frame, answer, expected, [&](const cv::Rect& box) { return colourLook_(frame, box); });
    Verdict verdict = judgeAlone_(frame, advice_.answer);
    adviser_.conclude(verdict, answer);
    return verdict;
  }

 private:
  Verdict judgeAlone_(const cv::Mat& frame, const Answer& answer) {
    const Look look = lookAt_(frame, answer);
    if (usual_.value() - around_.value() < settings_.minContrast) {
      if (look.likeness && answer.seen) learn_(look, *answer.box);
      return passedOn_(answer, "the target looks like its surroundings");
    }
    return lost_ == 0 ? follow_(frame, answer, look) : search_(frame, answer, look);
  }

  struct Look {
    std::optional<HalfColours> colours;  ///< Empty: nothing to look at.
    std::optional<double> likeness;
    double margin = 0.0;  ///< 0: as the surroundings, 1: as usual.
    CodedView view;
  };

  double marginOf_(double likeness) const {
    return (likeness - around_.value()) / std::max(1e-3, usual_.value() - around_.value());
  }

  std::optional<ColourLook> colourLook_(const cv::Mat& frame, const cv::Rect& box) {
    if (!usable(box)) return std::nullopt;
    const CodedView view = viewOf(frame, box, workScale(box.size()), palette_);
    if (view.codes.empty()) return std::nullopt;
    const std::optional<HalfColours> look = coloursIn(view, view.toView(box), palette_);
    if (!look) return std::nullopt;
    return ColourLook{marginOf_(model_.likeness(*look)), *look, identity_.logFactorOf(*look)};
  }

  Look lookAt_(const cv::Mat& frame, const Answer& answer) {
    Look look;
    if (!answer.box || !usable(*answer.box)) return look;
    look.view = viewOf(frame, grown(*answer.box, kSurroundings), workScale(answer.box->size()), palette_);
    if (look.view.codes.empty()) return look;
    look.colours = coloursIn(look.view, look.view.toView(*answer.box), palette_);
    if (!look.colours) return look;
    look.likeness = model_.likeness(*look.colours);
    look.margin = marginOf_(*look.likeness);
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
    if (look.margin >= settings_.usualFrom) usual_.add(*look.likeness);
    if (look.colours && look.margin >= settings_.learnFrom && settings_.learnRate > 0.0) {
      ++learnt_;
      identity_.learn(*look.colours);
      model_.learnMore(*look.colours, static_cast<float>(std::max(settings_.learnRate, 1.0 / (learnt_ + 1))));
    }
    lookAround_(look.view, box);
    if (!look.colours || look.margin < settings_.sureFrom) {
      motion_.stay(box);
      sure_.miss();
      return;
    }
    blend(recent_, *look.colours, static_cast<float>(settings_.recentRate));
    motion_.see(box);
    sure_ = motion_;
    if ((box & cv::Rect2d(look.view.part)) == box) learnSize_(box.size());
  }

  /// The target changes its colours before the eyes of the second opinion: what is usual goes along.
  void learnChange_(const Look& look) {
    if (look.margin >= settings_.usualFrom) return;
    usual_.add(*look.likeness);
    blend(recent_, *look.colours, static_cast<float>(settings_.recentRate));
  }

  /// A box that shrinks or grows slips off the target as a rule: its size is followed slowly, and not far.
  void learnSize_(const cv::Size2d& seen) { size_ = followedSize(size_, seen, startSize_); }

  /// The margin below which a box is in doubt.
  double likeEnough_() const { return advice_.vouched ? settings_.vouchedFrom : settings_.doubtBelow; }

  Verdict follow_(const cv::Mat& frame, const Answer& answer, const Look& look) {
    if (look.colours) identity_.followed(*look.colours);
    if (const std::optional<Takeover::Before> before = beforeTakeover_(answer, look)) {
      beginSearchFrom_(*before, *answer.box);
      Verdict verdict = search_(frame, answer, look);
      if (verdict.state == State::Searching)
        verdict.reason = "lost: the tracker's box goes where somebody else was going";
      return verdict;
    }
    const bool other = identity_.looksLikeOther();
    const bool alike = look.likeness && look.margin >= likeEnough_() && !other;
    steady_ += settings_.driftRate * (std::min(1.0, look.margin) - steady_);
    if (answer.seen && alike && (advice_.vouched || steady_ >= settings_.driftBelow)) {
      if (advice_.vouched) learnChange_(look);
      doubts_ = 0;
      ++sinceCheck_;
      learn_(look, *answer.box);
      if (look.margin >= settings_.sureFrom) lookForOthers_(frame, *answer.box);
      if (trial_ > 0) return onTrial_(*answer.box, look);
      return verdict_(State::Agreed, answer.box, true, "the tracker's box shows the target", look);
    }
    sure_.miss();
    if (++doubts_ < settings_.doubtFrames) {
      const char* shows = other ? "the tracker's box looks more like somebody else near the target"
                                : "the tracker's box looks little like the target";
      return verdict_(State::Doubted, answer.box, false, answer.seen ? shows : "the tracker does not see it", look);
    }
    beginSearch_();
    return search_(frame, answer, look);
  }

  /// The tracker's box shows what was found, but who that is still has to show.
  Verdict onTrial_(const cv::Rect& box, const Look& look) {
    if (trial_ > 0) --trial_;
    Verdict verdict = verdict_(State::Reacquired, box, false, "on trial: likely the target", look);
    verdict.belief = trialBelief_;
    return verdict;
  }

  /// The target before somebody took the tracker along; empty: nobody did, as it seems.
  std::optional<Takeover::Before> beforeTakeover_(const Answer& answer, const Look& look) {
    takeover_.followed(motion_, recent_);
    if (!answer.seen || !look.colours) return std::nullopt;
    const std::optional<Takeover::Before> before =
        takeover_.noticed(*answer.box, *look.colours, tracks_.all(), sinceCheck_, settings_.takeoverFrames);
    if (!before) return std::nullopt;
    // Where the camera turns, what stands still goes as well.
    const std::optional<cv::Point2d> moved = backdrop_.movedSince(before->motion.lost() - sinceCheck_);
    return moved && cv::norm(*moved) <= kSteady * diagonalOf(*answer.box) ? before : std::nullopt;
  }

  /// Goes on from where the target was going before somebody took the tracker along.
  void beginSearchFrom_(const Takeover::Before& before, const cv::Rect2d& box) {
    motion_ = sure_ = before.motion;
    recent_ = before.look;
    lost_ = before.motion.lost();
    doubts_ = 1;
    predictUntil_ = lost_ + settings_.predictFrames;
    takeover_.clear();
    takenOver_ = true;
    tracks_.isInstead(before.who, box, sinceCheck_);
    for (PlaceTrack& track : tracks_.all()) {
      if (!track.other) born_(track);
    }
  }

  /// Goes back to where the target was last surely seen, and on from there.
  void beginSearch_() {
    takeover_.clear();
    predictUntil_ = settings_.predictFrames;
    lost_ = std::max(1, std::min(sure_.lost(), kRolledBack) - 1);
    if (sure_.lost() <= kRolledBack) {
      motion_ = sure_;
      return;
    }
    for (int i = 0; i < doubts_; ++i) motion_.miss();
  }

  /// What else looks like the target, every few frames.
  void lookForOthers_(const cv::Mat& frame, const cv::Rect2d& box) {
    if (settings_.checkEvery <= 0 || sinceCheck_ < settings_.checkEvery) return;
    const CodedView view =
        viewOf(frame, grownBy(box, settings_.othersWithin * diagonalOf(box)), workScale(size_), palette_);
    const std::vector<Place> places = without_(alike_(findPlaces(view, size_, false, model_, palette_)), box, kTouches);
    tracks_.updateBeside(box, places, sinceCheck_);
    backdrop_.note(frame, sinceCheck_);
    if (tracks_.meets(box)) identity_.meets();
    rivalry_.looked(view.part.area() / (diagonalOf(box) * diagonalOf(box)));
    for (const Place& place : places) {
      rivalry_.rival(marginOf_(place.likeness));
      identity_.learnOther(place.look);
    }
    sinceCheck_ = 0;
  }

  std::vector<Place> alike_(std::vector<Place> places) const {
    places.erase(std::remove_if(places.begin(), places.end(),
                                [this](const Place& p) { return marginOf_(p.likeness) < settings_.doubtBelow; }),
                 places.end());
    return places;
  }

  /// The places of which less than this share of the smaller one is common with the box.
  static std::vector<Place> without_(std::vector<Place> places, const cv::Rect2d& box, double share) {
    const auto same = [&](const Place& p) {
      return (p.box & box).area() >= share * std::min(p.box.area(), box.area());
    };
    places.erase(std::remove_if(places.begin(), places.end(), same), places.end());
    return places;
  }

  Verdict search_(const cv::Mat& frame, const Answer& answer, const Look& look) {
    trial_ = 0;
    if (doubts_ > 0) {
      doubts_ = 0;  // the frame in which the search begins was counted
    } else {
      motion_.miss();
    }
    if (adviser_.present()) motion_.keepInside(frame.size());
    ++lost_;
    if (advice_.back && answer.seen && look.likeness && look.margin >= likeEnough_()) {
      return regained_(answer, look, trackAt_(*answer.box));
    }
    if (takenOver_ && lost_ > predictUntil_) {  // the target is not found: it may be in the tracker's box after all
      takenOver_ = false;
      if (answer.box) tracks_.forget(*answer.box);
      if (answer.seen && look.margin >= settings_.sureFrom) return takeBack_(*answer.box, look);
    }
    followPlaces_(placesIn_(frame, answer, look));
    const Likeliest found = likeliest_();
    PlaceTrack* best = found.track;
    if (best == nullptr) return predicted_("lost: nothing near looks enough like the target", answer, look);
    const double belief = found.belief;
    if (belief >= kHope) hope_ = best->box;
    if (!found.believed) {
      Verdict verdict = predicted_("lost: what is found may as well be somebody else", answer, look);
      verdict.belief = belief;
      return verdict;
    }
    if (best->likeliest < looksFor_(belief, disputed_(answer, look, best->box)))
      return predicted_("lost: a find must hold for another frame", answer, look);
    if (answer.seen && answer.box && (cv::Rect2d(*answer.box) & best->box).area() > 0.6 * best->box.area()) {
      return regained_(answer, look, best->box);
    }
    std::optional<Opinion> confirmed;
    if (adviser_.present()) {
      confirmed = adviser_.confirm(frame, wholePixels(best->box));
      if (!confirmed) return predicted_("lost: the second opinion does not see it in what is found", answer, look);
    }
    return reacquire_(*best, belief, look, confirmed);
  }

  /// Continues the tracks of all that may be the target with these places.
  void followPlaces_(const std::vector<Place>& places) {
    std::vector<double> own;
    std::vector<double> alike;
    for (const Place& place : places) {
      own.push_back(ownDensity(evidenceOf_(place)));
      alike.push_back(marginOf_(place.likeness) >= kMayBeIt ? lookFactor(recent_, place.look) : 0.0);
    }
    tracks_.update(places, sinceCheck_ + 1, false, own, alike);
    sinceCheck_ = 0;
  }

  struct Likeliest {
    PlaceTrack* track = nullptr;  ///< Of those found in this frame; null: none.
    double belief = 0.0;          ///< See Verdict::belief.
    bool believed = false;        ///< Enough, and enough of all that is found.
  };

  /// Weighs all that may be the target, and counts in how many frames which was the likeliest.
  Likeliest likeliest_() {
    Likeliest found;
    double bestOdds = 0.0;
    double finds = 0.0;
    for (PlaceTrack& track : tracks_.all()) {
      if (track.other) continue;
      if (track.age == 0) born_(track);
      const double odds = oddsOf(evidenceOf_(track), rivalry_) * std::exp(identity_.logFactorOf(track.look));
      finds += odds;
      if (!track.found || odds <= bestOdds) continue;
      bestOdds = odds;
      found.track = &track;
    }
    if (found.track == nullptr) return found;
    found.belief = bestOdds / (1.0 + finds);  // 1: of something that is not found
    found.believed = found.belief >= settings_.believe && bestOdds >= settings_.among * finds;
    for (PlaceTrack& track : tracks_.all()) {
      const bool ahead = &track == found.track && found.believed;
      track.likeliest = ahead ? track.likeliest + 1 : std::max(0, track.likeliest - 1);
    }
    return found;
  }

  /// For how many looks a find must be the likeliest: who may come out from behind something is waited for.
  double looksFor_(double belief, bool disputed) const {
    const double least = disputed ? settings_.disputedFrames : settings_.sureFrames;
    if (belief >= settings_.sure) return least;
    constexpr double kWellBelieved = 0.75;
    return std::max(least + 1.0, settings_.confirmFrames * std::pow(kWellBelieved / belief, settings_.patience));
  }

  /// The tracker claims to see the target elsewhere, near where it should be, and that looks at least a little like it:
  /// something may be passing in front.
  bool disputed_(const Answer& answer, const Look& look, const cv::Rect2d& find) const {
    if (takenOver_ || !answer.seen || !look.likeness || look.margin < settings_.disputedFrom) return false;
    const cv::Rect2d box(*answer.box);
    return distanceBetween(box, motion_.box()) < diagonalOf(motion_.box()) &&
           (box & find).area() < kElsewhere * find.area();
  }

  /// What looks like the target within reach, the tracker's own box among it, whether or not it claims to see it.
  std::vector<Place> placesIn_(const cv::Mat& frame, const Answer& answer, const Look& look) {
    const double reach = std::min(6.0, 0.8 + 0.12 * lost_) * diagonalOf(motion_.box());
    const cv::Point2d c = centreOf(motion_.box());
    const cv::Rect part = cv::Rect2d(c.x - reach - size_.width / 2, c.y - reach - size_.height / 2,
                                     2 * reach + size_.width, 2 * reach + size_.height);
    const CodedView view = viewOf(frame, part, workScale(size_), palette_);
    std::vector<Place> places = alike_(findPlaces(view, size_, lost_ > kResizedAfter, model_, palette_));
    if (!look.likeness || look.margin < settings_.doubtBelow) return places;
    const cv::Rect2d box(*answer.box);
    if (distanceBetween(box, motion_.box()) > reach) return places;
    places = without_(std::move(places), box, 0.5);
    Place own;
    own.box = box;
    own.likeness = *look.likeness;
    own.look = *look.colours;
    places.push_back(own);
    return places;
  }

  Evidence evidenceOf_(const Place& place) const {
    Evidence evidence;
    evidence.margin = marginOf_(place.likeness);
    evidence.same = lookFactor(recent_, place.look);
    evidence.distance = distanceBetween(place.box, motion_.box()) / diagonalOf(motion_.box());
    evidence.lost = lost_;
    return evidence;
  }

  Evidence evidenceOf_(const PlaceTrack& track) const {
    Evidence evidence;
    evidence.margin = marginOf_(track.likeness);
    evidence.same = std::max(track.bornSame, lookFactor(recent_, track.look));  // half hidden at first
    evidence.distance = track.bornFar;
    evidence.lost = track.bornLost;
    evidence.others = track.bornOthers;
    evidence.speedKnown = track.looks >= settings_.confirmFrames;
    evidence.speedDifference = cv::norm(track.velocity - motion_.velocity()) / diagonalOf(motion_.box());
    return evidence;
  }

  void born_(PlaceTrack& track) const {
    track.bornFar = distanceBetween(track.box, motion_.box()) / diagonalOf(motion_.box());
    track.bornLost = lost_;
    track.bornSame = lookFactor(recent_, track.look);
    Place place;
    place.box = track.box;
    place.look = track.look;
    track.bornOthers = tracks_.unfoundOthersAt(place);
  }

  /// The box of the track that is in this box; the box itself where there is none.
  cv::Rect2d trackAt_(const cv::Rect2d& box) {
    const PlaceTrack* best = nullptr;
    for (const PlaceTrack& track : tracks_.all()) {
      if (distanceBetween(track.box, box) > 0.3 * diagonalOf(box)) continue;
      if (best == nullptr || distanceBetween(track.box, box) < distanceBetween(best->box, box)) best = &track;
    }
    return best != nullptr ? best->box : box;
  }

  /// The tracker itself is on the target again.
  Verdict regained_(const Answer& answer, const Look& look, const cv::Rect2d& place) {
    const Verdict verdict = verdict_(State::Agreed, answer.box, true, "the tracker's box shows the target again", look);
    tracks_.targetIsIn(place);
    identity_.again();
    takenOver_ = false;
    lost_ = 0;
    steady_ = 1.0;
    learn_(look, *answer.box);
    return verdict;
  }

  /// Nobody took the tracker along, as it seems by now: its box counts again, on trial.
  Verdict takeBack_(const cv::Rect& box, const Look& look) {
    motion_.see(box);
    sure_ = motion_;
    lost_ = 0;
    trial_ = settings_.trialFrames;
    trialBelief_.reset();
    return onTrial_(box, look);
  }

  Verdict reacquire_(PlaceTrack track, double belief, const Look& look, const std::optional<Opinion>& confirmed) {
    const cv::Rect2d box = confirmed ? cv::Rect2d(confirmed->box) : track.box;
    trial_ = confirmed || belief >= settings_.provenFrom ? 0 : settings_.trialFrames;
    trialBelief_ = belief;
    Verdict verdict = verdict_(State::Reacquired, wholePixels(box), trial_ == 0, "found: likely the target", look);
    verdict.restart = true;
    verdict.likeness = track.likeness;
    verdict.belief = belief;
    motion_.see(box);
    sure_ = motion_;
    tracks_.targetIsIn(track.box);
    identity_.again();
    identity_.meets();
    takenOver_ = false;
    lost_ = 0;
    steady_ = 1.0;
    return verdict;
  }

  /// For a few frames where the target should be; then the tracker's own box, which nobody vouches for, unless somebody
  /// took it along.
  Verdict predicted_(const char* reason, const Answer& answer, const Look& look) const {
    const bool still = lost_ <= predictUntil_;
    Verdict verdict = verdict_(State::Searching, std::nullopt, false, reason, look);
    if (still) verdict.box = wholePixels(motion_.box());
    const bool alike = look.likeness && look.margin >= settings_.disputedFrom;
    if (!still && !takenOver_ && (answer.seen || alike)) verdict.box = answer.box;
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
  FrameCheck frames_;
  Palette palette_;
  ColourModel model_;
  TargetMotion motion_;
  cv::Size2d size_;  ///< To look for.
  cv::Size2d startSize_;
  SlowMean usual_{0.02};
  SlowMean around_{0.05};
  int lost_ = 0;
  int predictUntil_ = 0;  ///< So long lost, where the target should be is reported.
  int learnt_ = 0;
  int sinceCheck_ = 0;
  int trial_ = 0;  ///< Frames for which what was found must still be agreed on to be called seen.
  std::optional<double> trialBelief_;
  PlaceTracks tracks_;
  Rivalry rivalry_;
  Identity identity_;
  Takeover takeover_;
  Backdrop backdrop_;
  bool takenOver_ = false;  ///< The search began with that: what the tracker claims disputes nothing.
  TargetMotion sure_;       ///< As of when the target was last seen well.
  HalfColours recent_{};    ///< What the target has looked like of late.
  double steady_ = 1.0;
  int doubts_ = 0;
  Adviser adviser_;
  std::optional<cv::Rect2d> hope_;  ///< What was found last and may be the target: the second opinion looks there.
  Advice advice_;                   ///< On the frame in hand.
};

Guard::Guard(const Settings& settings) : impl_(std::make_unique<Impl>(settings)) {}
Guard::~Guard() = default;
Guard::Guard(Guard&&) noexcept = default;
Guard& Guard::operator=(Guard&&) noexcept = default;

void Guard::consult(std::unique_ptr<SecondOpinion> opinion) {
  impl_->consult(std::move(opinion));
}

bool Guard::start(const cv::Mat& frame, const cv::Rect& box) {
  return impl_->start(frame, box);
}

bool Guard::colourless() const {
  return impl_->colourless();
}

std::optional<double> Guard::likenessOf(const cv::Mat& frame, const cv::Rect& box) const {
  return impl_->likenessOf(frame, box);
}

Verdict Guard::judge(const cv::Mat& frame, const Answer& answer) {
  return impl_->judge(frame, answer);
}

}  // namespace csrt_guard
