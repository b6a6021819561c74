// setConfig() from one thread while another tracks: no frame sees half of a change, and the last change holds.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>

#include "config_facts.h"
#include "support/platform_scenes.h"

namespace {

using namespace config_facts;

constexpr int kFrames = 12;

// Lists long enough for a change to take a while between its first value and its last. The thread sanitizer, which
// needs no luck to see an unlocked reader, makes each of them many times slower.
#if defined(__SANITIZE_THREAD__)
constexpr int kChanges = 40;
constexpr std::size_t kScales = 200;
#else
constexpr int kChanges = 400;
constexpr std::size_t kScales = 2000;
#endif

// Whole configurations, told apart by a number; a mixture of two is a change seen half done.
std::string configuration(int number) {
  const std::string n = std::to_string(number);
  std::string list = "\"" + n + "\"";
  for (std::size_t i = 1; i < kScales; ++i) list += ",\"" + n + "\"";
  return R"({"roi": {"min_delta_x": )" + n + R"(, "min_delta_y": )" + n + R"(}, "redetect": {"scale_list": [)" + list +
         R"(], "oscillation_max": )" + n + R"(}, "preposition": {"alignment_hold_frames": )" + n + "}}";
}

bool isWhole(const CsrtConfig& config) {
  const int n = config.roi.min_delta_x;
  return config.roi.min_delta_y == n && config.redetect.scale_list == std::vector<double>(kScales, n) &&
         config.redetect.oscillation_max == n && config.preposition.alignment_hold_frames == n;
}

CSRTTrackingAlgo::Frames framesOf(const cv::Mat& picture) {
  return {std::make_shared<ocula::OculaPicture>(picture)};
}

class ConcurrencyTest : public testing::Test {
 protected:
  void SetUp() override {
    cv::setNumThreads(1);
    const cv::Rect start = drawer_.truth(0);
    bool started = false;
    algo_.init(framesOf(drawer_.frame(0)), {start.x, start.y, start.width, start.height}, &started);
    ASSERT_TRUE(started);
  }

  void trackAll() {
    for (int i = 1; i <= kFrames; ++i) records_ += algo_.update(framesOf(drawer_.frame(i)), nullptr).size();
  }

  const drawn::SceneDrawer drawer_{drawn::scenes().front()};
  OpenedAlgo algo_;
  std::size_t records_ = 0;
};

TEST_F(ConcurrencyTest, NoReaderSeesHalfAChange) {
  algo_.setConfig(configuration(1));
  std::atomic<bool> done{false};
  int torn = 0;
  std::thread reader([&] {
    while (!done) {
      const std::lock_guard<std::mutex> lock(algo_.mutex_);
      torn += isWhole(algo_.config_) ? 0 : 1;
    }
  });
  std::thread writer([&] {
    for (int i = 0; i < kChanges; ++i) algo_.setConfig(configuration(1 + i % 9));
  });
  trackAll();
  writer.join();
  done = true;
  reader.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(records_, static_cast<std::size_t>(kFrames));
  EXPECT_EQ(algo_.config_.roi.min_delta_x, 1 + (kChanges - 1) % 9);
}

// The lock that init() and update() hold keeps a change waiting however long they take.
TEST_F(ConcurrencyTest, AChangeWaitsForTheLock) {
  std::unique_lock<std::mutex> lock(algo_.mutex_);
  auto change = std::async(std::launch::async, [this] { algo_.setConfig(R"({"roi": {"min_size": 64}})"); });
  EXPECT_EQ(change.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
  EXPECT_EQ(algo_.config_.roi.min_size, 128);
  lock.unlock();
  change.get();
  EXPECT_EQ(algo_.config_.roi.min_size, 64);
}

TEST_F(ConcurrencyTest, EveryFrameIsAnsweredWhileTheTrackerIsRebuilt) {
  std::thread writer([&] {
    for (int i = 0; i < kFrames; ++i) {
      algo_.setConfig(i % 2 == 0 ? R"({"csrt": {"padding": 2.5}})" : R"({"csrt": {"padding": 3.0}})");
    }
  });
  trackAll();
  writer.join();
  EXPECT_EQ(records_, static_cast<std::size_t>(kFrames));
  EXPECT_EQ(algo_.config_.csrt.padding, 3.0);
  algo_.update(framesOf(drawer_.frame(kFrames + 1)), nullptr);
  EXPECT_FALSE(algo_.pending_rebuild_);
}

TEST_F(ConcurrencyTest, ManyWritersTakeTurns) {
  std::vector<std::thread> writers;
  for (int w = 1; w <= 4; ++w) {
    writers.emplace_back([this, w] {
      for (int i = 0; i < kChanges / 4; ++i) algo_.setConfig(configuration(w));
    });
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_TRUE(isWhole(algo_.config_));
}

}  // namespace
