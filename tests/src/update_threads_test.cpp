// update() and other threads: what may happen while the frame is being cropped.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "support/drawn_scene.h"
#include "support/locks.h"
#include "support/update_fixture.h"

using UpdateThreadsTest = UpdateTest;

TEST_F(UpdateThreadsTest, LeavesTheLockFreeWhileItCropsAndHoldsItWhileItTracks) {
  bool freeWhileCropping = false;
  bool freeWhileTracking = true;
  picture->onCrop = [&](const cv::Rect& r) {
    freeWhileCropping = isFree(algo.mutex_);
    return picture->getBGR()(r);
  };
  algo.health_ = CsrtTrackerHealth([&] {
    freeWhileTracking = isFree(algo.mutex_);
    return 1.0;
  });
  tracker->thenFinds(inWindow(kBox));
  step();
  EXPECT_TRUE(freeWhileCropping);
  EXPECT_FALSE(freeWhileTracking);
  EXPECT_TRUE(isFree(algo.mutex_));
}

TEST_F(UpdateThreadsTest, LooksAgainAfterCroppingWhetherItStillTracks) {
  std::promise<void> cropping;
  std::promise<void> restarted;
  picture->onCrop = [&](const cv::Rect& r) {
    cropping.set_value();
    restarted.get_future().wait();
    return picture->getBGR()(r);
  };
  std::thread host([&] {
    cropping.get_future().wait();
    algo.init({}, {}, nullptr);  // forgets the target
    restarted.set_value();
  });
  const Lines lines = logOfStep();
  host.join();
  EXPECT_EQ(lineStarting(lines, "update(): OUT"), "update(): OUT 0 detections (late not init/fullyLost)");
  EXPECT_TRUE(tracker->seen.empty());
  EXPECT_FALSE(algo.initialized_);
}

TEST_F(UpdateThreadsTest, AnswersNothingForATargetThatWasStartedMeanwhile) {
  makeTrackerCheap(algo.config_);
  const cv::Rect second(100, 80, 40, 40);
  picture = DrawnScene({640, 360}, {40, 40}).pictureAt(kBox.tl());
  picture->onCrop = [&](const cv::Rect& r) {
    const cv::Mat pixels = picture->getBGR()(r);
    std::thread([&] {
      algo.init({DrawnScene({640, 360}, {40, 40}).pictureAt(second.tl())}, {second.x, second.y, 40, 40}, nullptr);
    }).join();
    return pixels;
  };
  const Lines lines = logOfStep();
  EXPECT_EQ(lineStarting(lines, "update(): OUT"), "update(): OUT 0 detections (late not init/fullyLost)");
  EXPECT_TRUE(algo.initialized_);
  EXPECT_EQ(algo.trackBox_, second) << "the new tracker never saw the old target's window";
  EXPECT_EQ(algo.lastScore_, 1.0);
  EXPECT_EQ(algo.lostFrames_, 0);
}

TEST_F(UpdateThreadsTest, PredictsWhenTheTargetWasDeclaredLostMeanwhile) {
  picture->onCrop = [&](const cv::Rect& r) {
    const std::lock_guard<std::mutex> lock(algo.mutex_);
    algo.fullyLost_ = true;
    return picture->getBGR()(r);
  };
  EXPECT_EQ(logOfStep(), (Lines{"update(): OUT 1 detections (late not init/fullyLost)",
                                "  det[0]: bbox=(300,160,40,40) id=0 cls=-1"}));
}

TEST_F(UpdateThreadsTest, TakesAConfigurationThatComesWhileItCrops) {
  makeTrackerCheap(algo.config_);
  picture = DrawnScene({640, 360}, {40, 40}).pictureAt(kBox.tl());
  picture->onCrop = [&](const cv::Rect& r) {
    std::thread([&] { algo.setConfig(R"({"csrt":{"padding":2.5}})"); }).join();
    return picture->getBGR()(r);
  };
  step();
  EXPECT_FALSE(algo.pending_rebuild_) << "rebuilt on this very frame";
  EXPECT_NE(algo.tracker_, tracker);
}

TEST_F(UpdateThreadsTest, SurvivesEveryOperationAtOnce) {
  makeTrackerCheap(algo.config_);
  const DrawnScene scene({160, 128}, {24, 24});
  algo.init({scene.pictureAt({60, 50})}, {60, 50, 24, 24}, nullptr);
  std::atomic<bool> done{false};
  std::thread configuring([&] {
    for (int i = 0; !done; ++i) {
      algo.setConfig(i % 2 == 0 ? R"({"csrt":{"filter_lr":0.02}})"
                                : R"({"csrt":{"filter_lr":0.03},"misc":{"debug":false}})");
      algo.enableDebug(false);
      algo.getUuid();
      std::this_thread::yield();
    }
  });
  int records = 0;
  for (int i = 0; i < 8; ++i) {
    if (i == 4) algo.init({scene.pictureAt({62, 51})}, {62, 51, 24, 24}, nullptr);
    records += static_cast<int>(algo.update({scene.pictureAt({60 + i, 50})}, nullptr).size());
  }
  done = true;
  configuring.join();
  EXPECT_EQ(records, 8);
}
