// What a picture shows of a record, read back from its pixels.
#include "picture/annotate.h"

#include <gtest/gtest.h>

#include "picture/label_layout.h"

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

TEST(Annotate, SaysInPlainWordsWhyATargetWasGivenUpAndKeepsSayingIt) {
  const cv::Mat frame(576, 768, CV_8UC3, kGrey);
  const auto differs = [](const cv::Mat& a, const cv::Mat& b) { return cv::countNonZero(cv::Mat(a != b).reshape(1)); };
  CallRecord lost = record(TrackState::Lost, BoxFrom::None, false);
  CallRecord gone = record(TrackState::Inactive, BoxFrom::None, false);
  Annotator silent;
  silent.draw(frame, {record(TrackState::Tracked, BoxFrom::Tracker, true)});
  Annotator telling(silent);
  const cv::Mat without = silent.draw(frame, {lost});
  lost.reason = "bbox collée au bord";
  const cv::Mat with = telling.draw(frame, {lost});
  EXPECT_GT(differs(without, with), 2000) << "a line of words";
  EXPECT_GT(differs(silent.draw(frame, {gone}), telling.draw(frame, {gone})), 2000);
  EXPECT_EQ(differs(silent.draw(frame, {record(TrackState::Tracked, BoxFrom::Tracker, true)}),
                    telling.draw(frame, {record(TrackState::Tracked, BoxFrom::Tracker, true)})),
            0)
      << "found again";
}

TEST(Annotate, AWindowBearsTheColourOfItsTarget) {
  const cv::Mat frame(576, 768, CV_8UC3, kGrey);
  std::vector<CallRecord> records = {record(TrackState::Tracked, BoxFrom::Tracker, true),
                                     record(TrackState::Tracked, BoxFrom::Tracker, true)};
  records[1].target = "car";
  records[1].box = kBox + cv::Point(200, 0);
  records[0].window = cv::Rect(20, 20, 300, 300);
  records[1].window = cv::Rect(400, 20, 300, 300);
  const cv::Mat picture = Annotator().draw(frame, records);
  const auto first = picture.at<cv::Vec3b>({20, 100});
  const auto second = picture.at<cv::Vec3b>({400, 100});
  EXPECT_NE(first, second);
  // Their names lie at the windows' lower left corners.
  EXPECT_FALSE(isBackground(picture, {60, 325}) && isBackground(picture, {60, 305}));
  EXPECT_FALSE(isBackground(picture, {440, 325}) && isBackground(picture, {440, 305}));
}

TEST(LabelLayout, ThirtyLabelsDoNotCoverOneAnother) {
  const cv::Size picture(640, 360);
  cv::RNG random(7);
  std::vector<cv::Rect> boxes;
  for (int i = 0; i < 30; ++i) boxes.emplace_back(random.uniform(200, 420), random.uniform(100, 220), 24, 50);
  std::vector<cv::Rect> labels;
  for (const cv::Rect& box : boxes) {
    const cv::Rect place = placeLabel({70, 18}, box, labels, boxes, picture);
    EXPECT_EQ(place & cv::Rect({0, 0}, picture), place) << "inside the picture";
    for (const cv::Rect& other : labels) EXPECT_EQ((place & other).area(), 0);
    labels.push_back(place);
  }
}

TEST(LabelLayout, OneLabelStandsAboveItsBox) {
  EXPECT_EQ(placeLabel({70, 18}, {100, 100, 30, 60}, {}, {}, {640, 360}), cv::Rect(100, 82, 70, 18));
  EXPECT_EQ(placeLabel({70, 18}, {100, 0, 30, 60}, {}, {{100, 0, 30, 60}}, {640, 360}), cv::Rect(100, 60, 70, 18))
      << "below, where there is no room above";
  EXPECT_EQ(placeLabel({900, 18}, {100, 100, 30, 60}, {}, {}, {640, 360}).tl(), cv::Point(0, 82)) << "too wide";
  placeLabel({70, 18}, {-2000000000, 2000000000, 2000000000, 2000000000}, {}, {}, {640, 360});
  // A full picture: the label lies somewhere inside all the same.
  EXPECT_EQ(placeLabel({70, 18}, {100, 100, 30, 60}, {{0, 0, 640, 360}}, {}, {640, 360}).size(), cv::Size(70, 18));
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
