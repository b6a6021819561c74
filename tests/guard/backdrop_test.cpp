// Whether the camera stands still, in drawn frames.
#include "backdrop.h"

#include <gtest/gtest.h>

#include "guard_scene.h"

using csrt_guard::Backdrop;

namespace {

/// A frame of 640 x 360 whose ground has moved by so much.
cv::Mat frameMovedBy(const cv::Point& moved) {
  static const cv::Mat ground = groundOf({960, 540});
  return ground(cv::Rect(cv::Point(160, 90) - moved, cv::Size(640, 360))).clone();
}

double movedBy(const cv::Mat& before, const cv::Mat& now) {
  Backdrop backdrop;
  backdrop.note(before, 1);
  backdrop.note(now, 6);
  const std::optional<cv::Point2d> moved = backdrop.movedSince(6);
  return moved ? cv::norm(*moved) : -1.0;
}

TEST(Backdrop, StandsStillWhilePeopleWalkInFront) {
  cv::Mat before = frameMovedBy({});
  cv::Mat now = frameMovedBy({});
  for (int i = 0; i < 8; ++i) {
    drawPerson(before, personAt(60 * i, 150), kRedBlue);
    drawPerson(now, personAt(60 * i + 30, 150), kGreenWhite);
  }
  EXPECT_EQ(movedBy(before, now), 0.0);
}

TEST(Backdrop, StandsStillWhenItGetsALittleBrighter) {
  EXPECT_EQ(movedBy(frameMovedBy({}), frameMovedBy({}) + cv::Scalar(6, 6, 6)), 0.0);
}

TEST(Backdrop, IsMeasuredInFramePixels) {
  Backdrop backdrop;
  backdrop.note(frameMovedBy({}), 1);
  backdrop.note(frameMovedBy({40, -20}), 6);
  const cv::Point2d moved = backdrop.movedSince(6).value();
  EXPECT_NEAR(moved.x, 40, 7) << "one of its pixels is 6.7 of the frame's";
  EXPECT_NEAR(moved.y, -20, 7);
}

TEST(Backdrop, ComparesWithTheLatestNoteThatIsOldEnough) {
  Backdrop backdrop;
  backdrop.note(frameMovedBy({-20, 0}), 1);
  backdrop.note(frameMovedBy({40, 0}), 3);
  backdrop.note(frameMovedBy({40, 0}), 3);
  EXPECT_EQ(cv::norm(backdrop.movedSince(3).value()), 0.0);
  EXPECT_NEAR(cv::norm(backdrop.movedSince(4).value()), 60, 7);
  EXPECT_FALSE(backdrop.movedSince(7).has_value()) << "nothing was noted then";
}

TEST(Backdrop, CannotBeToldWhereThereIsNothingToSee) {
  EXPECT_EQ(movedBy(cv::Mat(360, 640, CV_8UC3, cv::Scalar::all(120)), cv::Mat(360, 640, CV_8UC3, cv::Scalar::all(120))),
            -1.0);
  EXPECT_FALSE(Backdrop().movedSince(1).has_value());
}

TEST(Backdrop, TakesGreyAndTinyFrames) {
  cv::Mat grey;
  cv::cvtColor(frameMovedBy({}), grey, cv::COLOR_BGR2GRAY);
  EXPECT_EQ(movedBy(grey, grey), 0.0);
  cv::Mat tiny;
  cv::resize(grey, tiny, {16, 8});
  EXPECT_EQ(movedBy(tiny, tiny), 0.0);
}

TEST(Backdrop, ForgetsWhatIsOld) {
  Backdrop backdrop;
  backdrop.note(frameMovedBy({}), 1);
  backdrop.note(frameMovedBy({}), 40);
  EXPECT_TRUE(backdrop.movedSince(40).has_value());
  backdrop.note(frameMovedBy({}), 10);
  EXPECT_FALSE(backdrop.movedSince(41).has_value());
  backdrop.clear();
  EXPECT_FALSE(backdrop.movedSince(0).has_value());
}

}  // namespace
