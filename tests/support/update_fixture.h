// A track in the middle of a plain frame whose tracker answers from a script.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "captured_log.h"
#include "test_algo.h"

class UpdateTest : public ::testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  /// The window that the default configuration keeps around the box: every frame of a still target asks for it again.
  static inline const cv::Rect kBox{300, 160, 40, 40};
  static inline const cv::Rect kWindow{220, 80, 200, 200};

  void SetUp() override { tracker = algo.follow(kBox, kWindow); }

  std::vector<AlgoOutput> updateRaw() {
    processed = false;
    return algo.update({picture}, &processed);
  }
  /// One frame; what it reports.
  std::vector<Reported> step() {
    const std::vector<Reported> reported = reportedIn(updateRaw());
    EXPECT_TRUE(processed);
    return reported;
  }
  /// One frame; what it logs.
  Lines logOfStep() {
    algo.enableDebug(true);
    return logOf([this] { updateRaw(); });
  }
  /// `box` as the tracker would have to find it in the window of the first frame.
  static cv::Rect inWindow(const cv::Rect& box) { return box - kWindow.tl(); }

  TestAlgo algo;
  cv::Ptr<ScriptedTracker> tracker;
  std::shared_ptr<TestPicture> picture = plainPicture({640, 360});
  bool processed = false;
};
