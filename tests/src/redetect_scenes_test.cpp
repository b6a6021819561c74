// A target that goes out of sight in drawn scenes: it is held again at the first search that can see it, and nothing
// is claimed while there is nothing. Counted in frames, never in time.
#include <gtest/gtest.h>

#include <string>

#include "support/test_algo.h"
#include "support/textures.h"

namespace {

const cv::Size kFrame(640, 360);
constexpr int kEvent = 12;       // frame at which the target goes out of sight
constexpr int kSearchEvery = 6;  // lost frames
constexpr int kSearches = 12;    // until the target is given up

struct Event {
  std::string name;
  int hidden = 0;   ///< Frames.
  cv::Point shift;  ///< Where the target shows up again, from where it would have been.
  enum { Board, Black, Cut } kind = Board;
};

/// A target that walks over a calm ground, with something that is not the target standing by.
class HiddenTarget {
 public:
  explicit HiddenTarget(Event event) : event_(std::move(event)) {}

  int back() const { return kEvent + event_.hidden; }
  bool visible(int index) const { return index < kEvent || index >= back(); }
  cv::Rect place(int index) const {
    const cv::Point moved = index >= back() ? event_.shift : cv::Point();
    return {cv::Point(140 + 2 * index, 130 + index / 2) + moved, sprite_.size()};
  }
  cv::Mat frame(int index) const {
    if (!visible(index) && event_.kind == Event::Black) return cv::Mat::zeros(kFrame, CV_8UC3);
    cv::Mat picture = ground_.clone();
    textured::put(picture, decoy_, {590, 300});  // out of the tracker's sight, but not of a search's
    if (event_.kind == Event::Cut && index >= kEvent) cv::flip(picture, picture, 1);
    if (event_.kind == Event::Board && index >= kEvent) {
      const cv::Rect last = place(kEvent - 1);
      cv::rectangle(picture, cv::Rect(last.x - 15, last.y - 15, last.width + 40, last.height + 30),
                    cv::Scalar(70, 95, 120), cv::FILLED);
    }
    if (visible(index)) textured::put(picture, sprite_, place(index).tl());
    return picture;
  }

 private:
  Event event_;
  cv::Mat ground_ = textured::texture(kFrame, 24, 3) * 0.15 + cv::Scalar::all(100);
  cv::Mat sprite_ = textured::texture({48, 40}, 8, 5);
  cv::Mat decoy_ = textured::texture({48, 40}, 8, 6);
};

class RedetectScenes : public ::testing::Test {
 protected:
  RedetectScenes() {
    CsrtConfig& config = algo_.config_;
    config.csrt.template_size = 100;
    config.csrt.number_of_scales = 3;
    config.redetect.frames_lost_before_reset = kSearchEvery;
    config.redetect.max_redetect_attempts = kSearches;
  }

  void start(const HiddenTarget& scene) {
    const cv::Rect box = scene.place(0);
    bool started = false;
    algo_.init({std::make_shared<TestPicture>(scene.frame(0))}, {box.x, box.y, box.width, box.height}, &started);
    ASSERT_TRUE(started);
  }
  // The reported box; empty when there is none.
  cv::Rect step(const HiddenTarget& scene, int index) {
    const auto reported = reportedIn(algo_.update({std::make_shared<TestPicture>(scene.frame(index))}, nullptr));
    return reported.empty() ? cv::Rect() : reported.front().box;
  }
  bool claims(const cv::Rect& box) const { return !box.empty() && algo_.lostFrames_ == 0; }

  TestAlgo algo_;
};

class OutOfSight : public RedetectScenes, public ::testing::WithParamInterface<Event> {};

TEST_P(OutOfSight, IsHeldAgainByTheFirstSearchThatSeesIt) {
  const HiddenTarget scene(GetParam());
  ASSERT_NO_FATAL_FAILURE(start(scene));
  int heldAt = -1;
  double after = 0.0;
  const int last = scene.back() + kSearchEvery + 8;
  for (int i = 1; i <= last; ++i) {
    const cv::Rect box = step(scene, i);
    if (!scene.visible(i)) {
      ASSERT_FALSE(claims(box)) << "frame " << i << ": claims " << box << " while nothing is there";
      continue;
    }
    const double common = box.empty() ? 0.0 : overlap(box, scene.place(i));
    if (i < kEvent) {
      ASSERT_GT(common, 0.6) << "frame " << i << ", before anything happens";
    } else if (heldAt < 0 && claims(box) && common > 0.5) {  // a lucky prediction is no hold
      heldAt = i;
    } else if (heldAt >= 0) {
      after += common / (last - heldAt);
    }
  }
  ASSERT_GE(heldAt, 0) << "never held again";
  EXPECT_LE(heldAt - scene.back(), kSearchEvery) << "frames until held";
  EXPECT_GT(after, 0.6) << "mean overlap from then on";
}

INSTANTIATE_TEST_SUITE_P(Drawn, OutOfSight,
                         ::testing::Values(Event{"Covered15", 15, {90, -50}, Event::Board},
                                           Event{"Covered30", 30, {70, -50}, Event::Board},
                                           Event{"Covered60", 60, {-20, -60}, Event::Board},
                                           Event{"Black8", 8, {0, 0}, Event::Black},
                                           Event{"Cut", 0, {-80, 60}, Event::Cut}),
                         [](const auto& param) { return param.param.name; });

TEST_F(RedetectScenes, ATargetThatStaysAwayIsGivenUpInTime) {
  const HiddenTarget scene({"Gone", 1000, {}, Event::Board});
  ASSERT_NO_FATAL_FAILURE(start(scene));
  for (int i = 1; i < kEvent; ++i) step(scene, i);
  for (int i = kEvent; i < kEvent + kSearchEvery * kSearches - 1; ++i) {
    ASSERT_FALSE(claims(step(scene, i))) << i;
    ASSERT_TRUE(algo_.initialized_) << i;
  }
  const int end = kEvent + kSearchEvery * kSearches - 1;
  EXPECT_TRUE(step(scene, end).empty());
  EXPECT_FALSE(algo_.initialized_);
  EXPECT_TRUE(step(scene, end + 1).empty());
}

}  // namespace
