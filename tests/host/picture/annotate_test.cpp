// What a picture shows of a record, read back from its pixels.
#include "picture/annotate.h"

#include <gtest/gtest.h>

namespace host {
namespace {

const cv::Scalar kGrey = cv::Scalar::all(128);
const cv::Rect kBox(300, 200, 80, 120);

CallRecord record(TrackState state, BoxFrom from, bool withBox) {
  CallRecord r;
  r.target = "walker";
  r.state = state;
  r.boxFrom = from;
  if (withBox) r.box = kBox;
  r.framesSinceSeen = state == TrackState::Tracked ? 0 : 3;
  r.secondsSinceSeen = 0.3;
  return r;
}

cv::Mat drawn(const CallRecord& r, cv::Size size = {768, 576}) {
  return Annotator().draw(cv::Mat(size, CV_8UC3, kGrey), {r});
}

bool isBackground(const cv::Mat& picture, cv::Point at) {
  return picture.at<cv::Vec3b>(at) == cv::Vec3b(128, 128, 128);
}

/// Share of the box's left edge that is drawn over.
double edgeShare(const cv::Mat& picture) {
  int drawnOver = 0;
  for (int y = kBox.y; y < kBox.y + kBox.height; ++y) drawnOver += isBackground(picture, {kBox.x, y}) ? 0 : 1;
  return static_cast<double>(drawnOver) / kBox.height;
}

TEST(Annotate, ATrackedBoxIsSolidAndAPredictedOneDashed) {
  EXPECT_DOUBLE_EQ(edgeShare(drawn(record(TrackState::Tracked, BoxFrom::Tracker, true))), 1.0);
  const double dashed = edgeShare(drawn(record(TrackState::Predicted, BoxFrom::Prediction, true)));
  EXPECT_GT(dashed, 0.4);
  EXPECT_LT(dashed, 0.9);
}

TEST(Annotate, WithoutABoxAMarkerStandsWhereTheTargetWasLast) {
  Annotator annotator;
  const cv::Mat frame(576, 768, CV_8UC3, kGrey);
  annotator.draw(frame, {record(TrackState::Tracked, BoxFrom::Tracker, true)});
  const cv::Mat lost = annotator.draw(frame, {record(TrackState::Lost, BoxFrom::None, false)});
  EXPECT_FALSE(isBackground(lost, {kBox.x + kBox.width / 2, kBox.y + kBox.height / 2}));
  EXPECT_EQ(edgeShare(lost), 0.0);
}

TEST(Annotate, ShowsTheWindowAndTheScore) {
  CallRecord r = record(TrackState::Tracked, BoxFrom::Tracker, true);
  const cv::Mat plain = drawn(r);
  r.window = cv::Rect(100, 50, 500, 450);
  r.score = 0.9;
  const cv::Mat full = drawn(r);
  EXPECT_TRUE(isBackground(plain, {100, 300}));
  EXPECT_FALSE(isBackground(full, {100, 300}));
  const cv::Point inBar(kBox.x + kBox.width + 5, kBox.y + kBox.height / 2);
  EXPECT_TRUE(isBackground(plain, inBar));
  EXPECT_FALSE(isBackground(full, inBar));
}

TEST(Annotate, AMovingTargetLeavesATrailAndHasAnArrow) {
  Annotator annotator;
  const cv::Mat frame(576, 768, CV_8UC3, kGrey);
  CallRecord r = record(TrackState::Tracked, BoxFrom::Tracker, true);
  cv::Mat picture;
  for (int i = 0; i < 20; ++i) {
    r.box = kBox + cv::Point(10 * i, 0);
    picture = annotator.draw(frame, {r});
  }
  EXPECT_FALSE(isBackground(picture, {kBox.x + kBox.width / 2 + 50, kBox.y + kBox.height / 2})) << "trail";
  const cv::Point now(kBox.x + 190 + kBox.width / 2, kBox.y + kBox.height / 2);
  EXPECT_FALSE(isBackground(picture, now + cv::Point(90, 0))) << "arrow";
}

TEST(Annotate, ATargetStartedOverHasNoTrailToItsNewPlace) {
  Annotator annotator;
  const cv::Mat frame(576, 768, CV_8UC3, kGrey);
  CallRecord r = record(TrackState::Tracked, BoxFrom::Tracker, true);
  annotator.draw(frame, {r});
  r.box = kBox + cv::Point(300, 0);
  const cv::Point between(kBox.x + kBox.width / 2 + 150, kBox.y + kBox.height / 2);
  EXPECT_FALSE(isBackground(Annotator(annotator).draw(frame, {r}), between)) << "a jump is drawn as one";
  annotator.forget(r.target);
  EXPECT_TRUE(isBackground(annotator.draw(frame, {r}), between));
}

TEST(Annotate, LeavesTheFrameItselfAlone) {
  const cv::Mat frame(120, 160, CV_8UC3, kGrey);
  Annotator().draw(frame, {record(TrackState::Tracked, BoxFrom::Tracker, true)});
  EXPECT_EQ(cv::countNonZero(frame.reshape(1) != 128), 0);
}

TEST(Annotate, AnyBoxAndAnyFrameCanBeDrawn) {
  CallRecord r = record(TrackState::Tracked, BoxFrom::Tracker, true);
  r.score = 0.0;
  for (const cv::Rect& box : {cv::Rect(-50, -50, 20, 20), cv::Rect(0, 0, 1, 1), cv::Rect(5000, 10, 40, 40),
                              cv::Rect(-100, -100, 9000, 9000), cv::Rect(3, 3, 0, 0)}) {
    r.box = box;
    for (const cv::Size& size : {cv::Size(16, 12), cv::Size(640, 360), cv::Size(3840, 2160)}) {
      EXPECT_EQ(drawn(r, size).size(), size);
    }
  }
}

}  // namespace
}  // namespace host
