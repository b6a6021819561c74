// What a run comes to, and how far it is.
#include "run/run_summary.h"
#include "base/statistics.h"

#include <gtest/gtest.h>

#include "run/progress.h"

namespace host {
namespace {

TEST(Quantile, IsAValueOfTheList) {
  EXPECT_DOUBLE_EQ(quantile({}, 0.5), 0.0);
  EXPECT_DOUBLE_EQ(quantile({3}, 0.5), 3.0);
  EXPECT_DOUBLE_EQ(quantile({5, 1, 3}, 0.5), 3.0);
  EXPECT_DOUBLE_EQ(quantile({4, 1, 3, 2}, 0.5), 2.0);
  EXPECT_DOUBLE_EQ(quantile({4, 1, 3, 2}, 0.95), 4.0);
  EXPECT_DOUBLE_EQ(quantile({4, 1, 3, 2}, 0.0), 1.0);
  EXPECT_DOUBLE_EQ(quantile({4, 1, 3, 2}, 1.0), 4.0);
}

TEST(ProgressText, SaysWhatIsKnown) {
  EXPECT_EQ(progressText(126, 300, 2.0), " 42 %  126/300 frames, 63.0 frames/s, 3 s left");
  EXPECT_EQ(progressText(300, 300, 2.0), "100 %  300/300 frames, 150.0 frames/s, 0 s left");
  EXPECT_EQ(progressText(310, 300, 2.0), "100 %  310/300 frames, 155.0 frames/s, 0 s left");
  EXPECT_EQ(progressText(50, 0, 2.0), "50 frames, 25.0 frames/s");
  EXPECT_EQ(progressText(0, 0, 0.0), "0 frames, 0.0 frames/s");
}

class Summary : public testing::Test {
 protected:
  void SetUp() override {
    RunInfo info;
    info.source = "street.mp4";
    info.frameSize = {640, 360};
    info.fps = 10.0;
    info.targets = {"walker"};
    summary_.begin(info);
  }
  void call(TrackState state, long unseen, const std::string& reason = "") {
    CallRecord record;
    record.target = "walker";
    record.isInit = frame_.index == 0;
    record.started = record.isInit;
    record.state = state;
    record.framesSinceSeen = unseen;
    record.secondsSinceSeen = static_cast<double>(unseen) / 10.0;
    record.reason = reason;
    record.update_ms = 8.0;
    if (state == TrackState::Tracked) record.box = cv::Rect(1, 2, 3, 4);
    summary_.frame(frame_, {record});
    ++frame_.index;
  }

  RunSummary summary_;
  SourceFrame frame_;
};

TEST_F(Summary, CountsStatesAndTheLongestAbsence) {
  call(TrackState::Reseeded, 0);
  for (int i = 0; i < 7; ++i) call(TrackState::Tracked, 0);
  for (int i = 1; i <= 3; ++i) call(TrackState::Predicted, i);
  EXPECT_EQ(summary_.text(),
            "street.mp4: 640x360, 10 frames/s, frames 0 to 10\n"
            "walker: tracked on 7 of 10 frames (70.0 %), predicted 3\n"
            "  longest out of sight: 3 frames (0.3 s); at the end: predicted, no box\n"
            "  8.0 ms a frame (median), 8.0 ms (95 of 100)\n");
}

TEST_F(Summary, SaysWhyATargetWasGivenUp) {
  call(TrackState::Reseeded, 0);
  call(TrackState::Tracked, 0);
  EXPECT_NE(summary_.text().find("never out of sight; at the end: tracked, box 1,2,3,4"), std::string::npos);
  call(TrackState::Lost, 1, "glued to the edge");
  EXPECT_NE(summary_.text().find("longest out of sight: 1 frame (0.1 s); given up: glued to the edge"),
            std::string::npos);
}

TEST_F(Summary, ExplainsThePluginsOwnWords) {
  call(TrackState::Reseeded, 0);
  call(TrackState::Lost, 1, "bbox collée au bord");
  EXPECT_NE(
      summary_.text().find("given up: the box stayed at the picture's border for too long (bbox collée au bord); at"),
      std::string::npos)
      << summary_.text();
}

}  // namespace
}  // namespace host
