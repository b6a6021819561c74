// init(): which of the three starts is chosen, and what is refused.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/drawn_scene.h"
#include "support/locks.h"
#include "support/test_algo.h"

namespace {

using Keys = Metadata::Keys;
using Lines = std::vector<std::string>;

const cv::Size kFrame(160, 128);
const cv::Rect kCentred(70, 54, 20, 20);
const cv::Rect kOffCentre(20, 54, 20, 20);

class InitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    makeTrackerCheap(algo.config_);
    algo.config_.preposition.direct_init_center_tol_norm = 0.25;  // exact in binary
  }

  std::vector<AlgoOutput> init(const cv::Rect& box, Metadata metadata = {}) {
    return initOn(scene.pictureAt(box.tl(), std::move(metadata)), box);
  }
  std::vector<AlgoOutput> initOn(const std::shared_ptr<ocula::OculaPicture>& picture, const cv::Rect& box) {
    started = !started;
    return algo.init({picture}, {box.x, box.y, box.width, box.height}, &started);
  }
  Lines logOfInit(const cv::Rect& box, Metadata metadata = {}) {
    algo.enableDebug(true);
    return logOf([&] { init(box, std::move(metadata)); });
  }

  /// A view that knows its geometry and a host that commands to follow.
  static Metadata following(const ocula::OculaPicture::MetadataValue& command) {
    Metadata metadata = viewOf(10.0, 5.0, 64.0, 32.0);
    metadata[Keys::kFollowMeEnabledCommand] = command;
    return metadata;
  }

  void expectReset() const {
    EXPECT_FALSE(started);
    EXPECT_FALSE(algo.initialized_);
    EXPECT_EQ(algo.tracker_, nullptr);
    EXPECT_EQ(algo.trackBox_, cv::Rect());
  }

  DrawnScene scene{kFrame, {20, 20}};
  TestAlgo algo;
  bool started = false;
};

}  // namespace

// ---------------------------------------------------------------------------------------------------- refusals

TEST_F(InitTest, ForgetsTheOldTargetEvenWithoutAFrame) {
  algo.follow(kCentred, {0, 0, 128, 128});
  started = true;
  EXPECT_TRUE(algo.init({}, {1, 1, 5, 5}, &started).empty());
  expectReset();
}

TEST_F(InitTest, RefusesNoFrameAndABoxWithoutSize) {
  algo.enableDebug(true);
  const Lines refused{"init(VP): nullptr frame or zero-size bbox => abort"};
  const auto valid = scene.pictureAt({20, 20});
  EXPECT_EQ(logOf([&] { algo.init({}, {1, 1, 5, 5}, &started); }), refused);
  EXPECT_EQ(logOf([&] {
              algo.init({nullptr, valid}, {1, 1, 5, 5}, &started);
            }),
            refused)
      << "only the first frame counts";
  EXPECT_EQ(logOf([&] { initOn(valid, {1, 1, 0, 5}); }), refused);
  EXPECT_EQ(logOf([&] { initOn(valid, {1, 1, 5, -5}); }), refused);
  expectReset();
}

TEST_F(InitTest, RefusesAFrameWithoutSize) {
  algo.enableDebug(true);
  for (const cv::Size& size : {cv::Size(0, 128), cv::Size(160, 0), cv::Size(-1, 128)}) {
    const auto picture = scene.pictureAt({20, 20});
    picture->size = size;
    EXPECT_EQ(logOf([&] { initOn(picture, {500, 500, 5, 5}); }), Lines{"init(VP): invalid src size"}) << size.width;
    expectReset();
  }
}

TEST_F(InitTest, RefusesABoxOutsideTheImage) {
  EXPECT_EQ(logOfInit({160, 10, 20, 20}), Lines{"init: bbox out of image => abort"});
  expectReset();
  EXPECT_EQ(algo.initBox_, cv::Rect());
}

TEST_F(InitTest, SurvivesBoxesAtTheEndsOfInt) {
  constexpr int kMax = std::numeric_limits<int>::max();
  constexpr int kMin = std::numeric_limits<int>::min();
  EXPECT_EQ(logOfInit({kMax, kMax, kMax, kMax}), Lines{"init: bbox out of image => abort"});
  EXPECT_EQ(logOfInit({kMin, kMin, kMax, kMax}), Lines{"init: bbox out of image => abort"});
}

TEST_F(InitTest, ChecksFrameAndBoxBeforeTheSizeAndTheSizeBeforeThePlace) {
  algo.enableDebug(true);
  const auto picture = scene.pictureAt({20, 20});
  picture->size = cv::Size(0, 0);
  EXPECT_EQ(logOf([&] {
              initOn(picture, {500, 500, 0, 5});
            }),
            Lines{"init(VP): nullptr frame or zero-size bbox => abort"});
}

TEST_F(InitTest, WorksWithoutAPlaceForTheAnswer) {
  EXPECT_TRUE(algo.init({scene.pictureAt(kCentred.tl())}, {70, 54, 20, 20}, nullptr).empty());
  EXPECT_TRUE(algo.initialized_);
}

// ------------------------------------------------------------------------------------------------ direct start

TEST_F(InitTest, StartsOnABoxNearTheCentre) {
  const auto lines = logOfInit(kCentred);
  EXPECT_TRUE(started);
  EXPECT_TRUE(algo.trackingStarted_);
  EXPECT_EQ(algo.trackBox_, kCentred);
  EXPECT_EQ(lines.front(),
            "CSRT init(VP): direct init near center dx_norm=0.00000 dy_norm=0.00000 tol=0.25000 roi=(70,54,20,20)");
  EXPECT_EQ(lineStarting(lines, "CSRT init(direct_init_near_center): src 160x128 | initTrackBoxFull=(70,54,20,20)"),
            lines.back());
}

TEST_F(InitTest, ReturnsNothingFromADirectOrImmediateStart) {
  EXPECT_TRUE(init(kCentred).empty());
  EXPECT_TRUE(init(kOffCentre).empty());
  EXPECT_TRUE(started);
}

TEST_F(InitTest, CountsExactlyTheToleranceAsNear) {
  EXPECT_EQ(logOfInit({110, 54, 20, 20}).front(),
            "CSRT init(VP): direct init near center dx_norm=0.25000 dy_norm=0.00000 tol=0.25000 roi=(110,54,20,20)");
  EXPECT_EQ(logOfInit({111, 54, 20, 20}).front(), "CSRT init(VP): preposition disabled by config roi=(111,54,20,20)");
  EXPECT_EQ(logOfInit({30, 22, 20, 20}).front(),
            "CSRT init(VP): direct init near center dx_norm=-0.25000 dy_norm=-0.25000 tol=0.25000 roi=(30,22,20,20)");
  EXPECT_EQ(logOfInit({30, 21, 20, 20}).front(), "CSRT init(VP): preposition disabled by config roi=(30,21,20,20)")
      << "either axis decides";
}

TEST_F(InitTest, MeasuresTheOffsetOfTheClippedBoxWithHalvesInDouble) {
  algo.config_.preposition.direct_init_center_tol_norm = 0.4375;
  EXPECT_EQ(logOfInit({-40, 54, 60, 20}).front(),
            "CSRT init(VP): direct init near center dx_norm=-0.43750 dy_norm=0.00000 tol=0.43750 roi=(0,54,20,20)");
  const auto narrow = DrawnScene({128, 128}, {20, 20}).pictureAt({0, 54});
  algo.config_.preposition.direct_init_center_tol_norm = 0.5 - 10.5 / 128.0;
  EXPECT_NE(lineStarting(logOf([&] { initOn(narrow, {0, 54, 21, 20}); }), "CSRT init(VP): direct init"), "");
}

TEST_F(InitTest, StartsNearTheCentreWhateverPrepositionSays) {
  algo.config_.preposition.enabled = true;
  EXPECT_TRUE(init(kCentred, following(1)).empty());
  EXPECT_TRUE(algo.initialized_);
  EXPECT_FALSE(algo.prepositionWaiting_);
}

// ---------------------------------------------------------------------------------------------- clip, not shift

TEST_F(InitTest, CutsABoxAtTheImageInsteadOfShiftingIt) {
  init({-10, -10, 50, 50});
  EXPECT_TRUE(started);
  EXPECT_EQ(algo.initBox_, cv::Rect(0, 0, 40, 40));
  EXPECT_EQ(algo.trackBox_, cv::Rect(0, 0, 40, 40));
}

TEST_F(InitTest, UsesOnlyTheFirstFrame) {
  const auto second = scene.pictureAt({10, 10});
  algo.init({scene.pictureAt(kCentred.tl()), second}, {70, 54, 20, 20}, &started);
  EXPECT_TRUE(started);
  EXPECT_TRUE(second->crops.empty());
  EXPECT_EQ(second->bgrCalls, 0);
}

// ------------------------------------------------------------------------------------------------- preposition

TEST_F(InitTest, AsksForTheCameraToPointAtAnOffCentreTarget) {
  algo.config_.preposition.enabled = true;
  const auto outputs = init(kOffCentre, following(1.0));
  EXPECT_TRUE(started);
  ASSERT_EQ(outputs.size(), 1U);
  EXPECT_EQ(outputs[0].name, "gimbal_preposition.v1");
  const double pan = 10.0 + (30.0 / 160.0 - 0.5) * 64.0;
  EXPECT_EQ(std::get<double>(memberOf(outputs[0].value, "target_pan_deg")), pan);
  EXPECT_EQ(std::get<double>(memberOf(outputs[0].value, "target_tilt_deg")), 5.0);
  EXPECT_TRUE(algo.prepositionWaiting_ && algo.prepositionTargetValid_ && algo.prepositionRefGeomValid_);
  EXPECT_EQ(algo.prepositionTargetPan_, pan);
  EXPECT_EQ(algo.prepositionRefPan_, 10.0);
  EXPECT_EQ(algo.prepositionRefTilt_, 5.0);
  EXPECT_EQ(algo.prepositionRefHfov_, 64.0);
  EXPECT_EQ(algo.prepositionRefVfov_, 32.0);
}

TEST_F(InitTest, StartsNoTrackerBeforeTheCameraPoints) {
  algo.config_.preposition.enabled = true;
  const auto lines = logOfInit(kOffCentre, following(1));
  EXPECT_EQ(algo.tracker_, nullptr);
  EXPECT_FALSE(algo.initialized_ || algo.trackingStarted_ || algo.zoomRefValid_);
  EXPECT_FALSE(algo.origPatchGpu_.empty()) << "the target's look is kept for later";
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].rfind("capturePrepositionReference: bbox=(20,54,20,20)", 0), 0U) << lines[0];
  EXPECT_EQ(lines[1], "CSRT init(VP): preposition-only target_pan=-10.000 target_tilt=5.000 roi=(20,54,20,20)");
}

TEST_F(InitTest, TakesTheCommandAsAnyNumberThatIsNotZero) {
  algo.config_.preposition.enabled = true;
  const std::vector<ocula::OculaPicture::MetadataValue> yes{1, -3, 1UL, 1.0, 0.5};
  for (const auto& command : yes) {
    EXPECT_EQ(init(kOffCentre, following(command)).size(), 1U) << "alternative " << command.index();
  }
}

TEST_F(InitTest, StartsAtOnceOnACommandOfZero) {
  algo.config_.preposition.enabled = true;
  const std::vector<ocula::OculaPicture::MetadataValue> no{0, 0UL, 0.0};
  for (const auto& command : no) {
    const auto lines = logOfInit(kOffCentre, following(command));
    EXPECT_EQ(lines.front(),
              "CSRT init(VP): preposition disabled follow_me_enabled_command=present value=0 roi=(20,54,20,20)");
    EXPECT_TRUE(started && algo.initialized_) << "alternative " << command.index();
  }
}

TEST_F(InitTest, TakesTextListsAndNumbersThatAreNoneForNoCommand) {
  algo.config_.preposition.enabled = true;
  const std::vector<ocula::OculaPicture::MetadataValue> missing{std::string("1"), std::vector<float>{1.0F},
                                                                std::nan(""), std::numeric_limits<double>::infinity()};
  for (const auto& command : missing) {
    const auto lines = logOfInit(kOffCentre, following(command));
    EXPECT_EQ(lines.front(),
              "CSRT init(VP): preposition disabled follow_me_enabled_command=missing value=0 roi=(20,54,20,20)")
        << "alternative " << command.index();
    EXPECT_TRUE(started && algo.initialized_);
  }
  EXPECT_EQ(logOfInit(kOffCentre, viewOf(10.0, 5.0, 64.0, 32.0)).front(),
            "CSRT init(VP): preposition disabled follow_me_enabled_command=missing value=0 roi=(20,54,20,20)");
}

TEST_F(InitTest, StartsAtOnceAndSilentlyWithoutGeometry) {
  algo.config_.preposition.enabled = true;
  const auto lines = logOfInit(kOffCentre, {{Keys::kFollowMeEnabledCommand, 1}});
  EXPECT_TRUE(started && algo.initialized_);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].rfind("CSRT init(immediate_init_no_metadata): src 160x128", 0), 0U) << lines[0];
}

TEST_F(InitTest, KeepsTheFieldOfViewOfAStartAsTheZoomReference) {
  init(kOffCentre, viewOf(10.0, 5.0, 64.0, 32.0));
  EXPECT_TRUE(algo.zoomRefValid_);
  EXPECT_EQ(algo.zoomRefHfov_, 64.0);
  EXPECT_EQ(algo.zoomRefVfov_, 32.0);
  init(kOffCentre);
  EXPECT_FALSE(algo.zoomRefValid_);
  EXPECT_EQ(algo.zoomRefHfov_, 0.0);
}

// ---------------------------------------------------------------------------------------------------- failures

TEST_F(InitTest, ReportsAStartThatFailsWithoutAnException) {
  algo.enableDebug(true);
  const auto picture = scene.pictureAt(kOffCentre.tl());
  picture->onBgr = [] { return cv::Mat(); };
  const auto lines = logOf([&] { initOn(picture, kOffCentre); });
  EXPECT_EQ(lines.back(), "initializeTrackerFromFrame(immediate_init_no_metadata): empty full BGR");
  expectReset();
  EXPECT_FALSE(algo.trackingStarted_);
}

TEST_F(InitTest, ResetsAndSaysSoWhenTheFrameThrows) {
  algo.enableDebug(true);
  const auto picture = scene.pictureAt(kCentred.tl());
  picture->onCrop = [](const cv::Rect&) -> cv::Mat { throw std::runtime_error("no pixels today"); };
  const auto lines = logOf([&] { initOn(picture, kCentred); });
  EXPECT_EQ(lines.back(), "init(): exception: no pixels today");
  expectReset();
  EXPECT_EQ(algo.initBox_, cv::Rect());
  EXPECT_TRUE(algo.fullGrayGpu_.empty());
  EXPECT_TRUE(isFree(algo.mutex_));
  algo.enableDebug(false);
  init(kCentred);
  EXPECT_TRUE(started) << "the object is usable afterwards";
}

TEST_F(InitTest, RefusesAPictureOfSixteenBits) {
  algo.enableDebug(true);
  const auto picture = std::make_shared<TestPicture>(cv::Mat(kFrame, CV_16UC3, cv::Scalar::all(500)));
  EXPECT_EQ(logOf([&] { initOn(picture, kCentred); }).back(), "init(): exception: ensureBGR8: unsupported CV_16UC3");
  expectReset();
}

TEST_F(InitTest, RefusesATrackerWithoutAnyFeature) {
  algo.enableDebug(true);
  algo.config_.csrt.use_hog = algo.config_.csrt.use_rgb = false;
  EXPECT_NE(lineStarting(logOfInit(kCentred), "init(): exception: "), "");
  expectReset();
}

TEST_F(InitTest, RefusesWhatOpenCVRefuses) {
  EXPECT_NE(lineStarting(logOfInit({80, 64, 1, 1}), "init(): exception: "), "");
  expectReset();
  algo.config_.csrt.window_function = "triangle";
  EXPECT_NE(lineStarting(logOfInit(kCentred), "init(): exception: "), "");
  expectReset();
}

TEST_F(InitTest, LetsWhatIsNoStandardExceptionThroughWithTheLockFree) {
  const auto picture = scene.pictureAt(kCentred.tl());
  picture->onCrop = [](const cv::Rect&) -> cv::Mat { throw 7; };
  EXPECT_THROW(initOn(picture, kCentred), int);
  EXPECT_TRUE(isFree(algo.mutex_));
}

TEST_F(InitTest, HoldsTheLockWhileItReadsTheFrame) {
  bool free = true;
  const auto picture = scene.pictureAt(kCentred.tl());
  picture->onCrop = [&](const cv::Rect& r) {
    free = isFree(algo.mutex_);
    return picture->getBGR()(r);
  };
  initOn(picture, kCentred);
  EXPECT_TRUE(started);
  EXPECT_FALSE(free);
  EXPECT_TRUE(isFree(algo.mutex_));
}

TEST_F(InitTest, FollowsTheTargetItWasGiven) {
  init(kCentred);
  for (int i = 1; i <= 5; ++i) {
    const cv::Rect truth = kCentred + cv::Point(2 * i, i);
    const auto reported = reportedIn(algo.update({scene.pictureAt(truth.tl())}, nullptr));
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_GT(overlap(reported[0].box, truth), 0.6) << "frame " << i << ": " << reported[0];
  }
}
