// One object under every operation at once, and several objects that lose and find their targets at the same time. What
// this is worth shows under the thread sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/captured_log.h"
#include "support/drawn_scene.h"
#include "support/locks.h"
#include "support/long_run.h"
#include "support/test_algo.h"

namespace {

constexpr int kUpdates = 40;
constexpr int kStarts = 10;
constexpr int kSteps = 40;
constexpr unsigned kSeeds[] = {2, 5, 9};  // of lives that lose and find their target within these steps

/// Threads that repeat what they are given until they are told to stop.
class Busy {
 public:
  ~Busy() { stop(); }

  void with(const std::function<void(int)>& work) {
    threads_.emplace_back([this, work] {
      for (int i = 0; !done_; ++i) {
        work(i);
        std::this_thread::yield();
      }
    });
  }

  void stop() {
    done_ = true;
    for (std::thread& thread : threads_) {
      if (thread.joinable()) thread.join();
    }
  }

 private:
  std::atomic<bool> done_{false};
  std::vector<std::thread> threads_;
};

const char* configuration(int number) {
  switch (number % 4) {
    case 0:
      return R"({"csrt":{"filter_lr":0.02},"misc":{"debug":true}})";
    case 1:
      return R"({"csrt":{"filter_lr":0.03},"redetect":{"frames_lost_before_reset":2},"misc":{"debug":false}})";
    case 2:
      return R"({"roi":{"min_size":48},"predict":{"bbox_smooth_enable":true}})";
    default:
      return R"({"work_width": 64, "roi": {"min_size": )";  // not JSON
  }
}

std::string textOf(const std::vector<AlgoOutput>& outputs) {
  std::ostringstream text;
  for (const Reported& r : reportedIn(outputs)) text << r << ';';
  return text.str();
}

/// One object's life, all of its answers in one text.
struct Life {
  explicit Life(unsigned seed) : run(seed) {
    run.algo.config_.redetect.coarse_factor = 0.5;  // shrinks the frame: that code keeps what it learnt for all objects
  }
  void live() {
    for (int i = 0; i < kSteps; ++i) answers += textOf(run.step()) + '\n';
  }

  LongRun run;
  std::string answers;
};

}  // namespace

TEST(Threads, OneObjectTakesEveryOperationFromAThreadOfItsOwn) {
  TestAlgo algo;
  makeTrackerCheap(algo.config_);
  const DrawnScene scene({160, 128}, {24, 24});
  const std::string uuid = algo.getUuid();
  std::atomic<int> foreignUuids{0};
  std::size_t records = 0;
  outputOf([&] {  // the log comes and goes
    Busy busy;
    busy.with([&](int i) { algo.setConfig(configuration(i)); });
    busy.with([&](int i) { algo.enableDebug(i % 2 == 0); });
    busy.with([&](int) { foreignUuids += algo.getUuid() == uuid ? 0 : 1; });
    std::thread starting([&] {
      for (int i = 0; i < kStarts; ++i) algo.init({scene.pictureAt({60 + i, 50})}, {60 + i, 50, 24, 24}, nullptr);
    });
    for (int i = 0; i < kUpdates; ++i) {
      const cv::Point away(-100, -100);
      records += algo.update({scene.pictureAt(i % 8 < 3 ? away : cv::Point(60 + i % 10, 50))}, nullptr).size();
    }
    starting.join();
    busy.stop();
  });
  EXPECT_EQ(records, static_cast<std::size_t>(kUpdates));
  EXPECT_EQ(foreignUuids, 0);
  ASSERT_TRUE(isFree(algo.mutex_));

  algo.enableDebug(false);  // which reports the window too
  bool started = false;
  algo.init({scene.pictureAt({60, 50})}, {60, 50, 24, 24}, &started);
  EXPECT_TRUE(started);
  const std::vector<Reported> reported = reportedIn(algo.update({scene.pictureAt({61, 50})}, nullptr));
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_GT(overlap(reported.front().box, {61, 50, 24, 24}), 0.6);
}

// At once first, so that what is learnt once per process is learnt by all of them together.
TEST(Threads, SeveralObjectsSearchTogetherAsTheyDoAlone) {
  std::vector<std::unique_ptr<Life>> together;
  for (const unsigned seed : kSeeds) together.push_back(std::make_unique<Life>(seed));
  std::vector<std::thread> threads;
  threads.reserve(together.size());
  for (const auto& life : together) threads.emplace_back([&life] { life->live(); });
  for (std::thread& thread : threads) thread.join();

  for (std::size_t i = 0; i < together.size(); ++i) {
    EXPECT_GT(together[i]->run.finds, 0) << "seed " << kSeeds[i];
    Life alone(kSeeds[i]);
    alone.live();
    EXPECT_EQ(together[i]->answers, alone.answers);
  }
}
