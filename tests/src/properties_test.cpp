// What holds on every frame of a long life, whatever happens to the target.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "support/long_run.h"

namespace {

constexpr int kFrames = 1500;

void expectInside(const cv::Rect& box, const cv::Size& frame) {
  EXPECT_EQ(box & cv::Rect({}, frame), box) << box;
  EXPECT_GT(box.area(), 0) << box;
}

// A window leaves the frame only where the frame is too small for it.
void expectWindowInside(const cv::Rect& window, const cv::Size& frame, int minSize) {
  EXPECT_TRUE(window.x >= 0 && window.y >= 0) << window;
  EXPECT_TRUE(window.br().x <= frame.width || window.width == minSize) << window;
  EXPECT_TRUE(window.br().y <= frame.height || window.height == minSize) << window;
}

void expectReset(const TestAlgo& algo) {
  EXPECT_EQ(algo.tracker_, nullptr);
  EXPECT_FALSE(algo.fullyLost_ || algo.trackerReady_ || algo.trackingStarted_ || algo.dynPatchValid_);
  EXPECT_EQ(algo.lostFrames_ + algo.redetectAttempts_ + algo.lostSinceRedetect_ + algo.oscillationCount_, 0);
  EXPECT_EQ(algo.trackBox_, cv::Rect());
  EXPECT_EQ(algo.predictedBox_, cv::Rect());
  EXPECT_EQ(algo.procRoi_, cv::Rect());
  EXPECT_EQ(algo.lastScore_, 1.0);
  EXPECT_TRUE(algo.fullGrayGpu_.empty() && algo.origPatchGpu_.empty() && algo.dynPatchGpu_.empty());
}

std::string textOf(const std::vector<AlgoOutput>& outputs) {
  std::ostringstream text;
  for (const Reported& r : reportedIn(outputs)) text << r << ';';
  return text.str();
}

}  // namespace

TEST(LongLife, KeepsItsInvariantsOnEveryFrame) {
  LongRun run(3);
  for (int i = 0; i < kFrames && !::testing::Test::HasFailure(); ++i) {
    const std::vector<Reported> reported = reportedIn(run.step());
    ASSERT_LE(reported.size(), 1U);
    for (const Reported& r : reported) {
      expectInside(r.box, LongRun::kFrame);
      EXPECT_TRUE(r.score >= 0.0 && r.score <= 1.0) << r.score;
    }
    EXPECT_GE(std::min({run.algo.lostFrames_, run.algo.redetectAttempts_, run.algo.lostSinceRedetect_,
                        run.algo.oscillationCount_, run.algo.redetectAge_ + 1}),
              0);
    if (run.algo.initialized_) {
      expectWindowInside(run.algo.procRoi_, LongRun::kFrame, run.algo.config_.roi.min_size);
    } else {
      expectReset(run.algo);
    }
  }
  // The run must have been through what it is meant to go through.
  EXPECT_GT(run.losses, 50);
  EXPECT_GT(run.finds, 3);
  EXPECT_GT(run.restarts, 3);
}

TEST(LongLife, GivesTheSameRecordsTwice) {
  LongRun first(11);
  LongRun second(11);
  for (int i = 0; i < kFrames / 3; ++i) ASSERT_EQ(textOf(first.step()), textOf(second.step())) << "frame " << i;
}
