// Lines over a frame, and the command that writes them.
#include "picture/grid.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "picture/street_scene.h"
#include "support/host_program.h"

namespace host_test {
namespace {

constexpr int kGrey = 90;

/// Whether a light line runs through most of the picture's pixels from `from` to `to`; labels may cross it.
bool hasLine(const cv::Mat& picture, cv::Point from, cv::Point to) {
  cv::LineIterator at(picture, from, to);
  int light = 0;
  for (int i = 0; i < at.count; ++i, ++at) light += (*at)[0] > 200 && (*at)[1] > 200 && (*at)[2] > 200 ? 1 : 0;
  return light > at.count * 8 / 10;
}

TEST(Grid, HasALineAtEveryTenthAndLeavesTheFrameAsItWas) {
  const cv::Mat frame(360, 640, CV_8UC3, cv::Scalar::all(kGrey));
  const cv::Mat before = frame.clone();
  const cv::Mat grid = host::drawGrid(frame);
  EXPECT_EQ(grid.size(), frame.size());
  EXPECT_EQ(cv::norm(frame, before, cv::NORM_INF), 0.0);
  for (int i = 1; i < 10; ++i) {
    EXPECT_TRUE(hasLine(grid, {64 * i, 0}, {64 * i, 359})) << "column " << i;
    EXPECT_TRUE(hasLine(grid, {0, 36 * i}, {639, 36 * i})) << "row " << i;
    EXPECT_FALSE(hasLine(grid, {64 * i + 32, 0}, {64 * i + 32, 359})) << "between the columns " << i;
  }
}

TEST(Grid, EveryLineHasALabelBesideIt) {
  const cv::Mat grid = host::drawGrid(cv::Mat(360, 640, CV_8UC3, cv::Scalar::all(kGrey)));
  for (int i = 1; i < 10; ++i) {
    const cv::Mat beside = grid(cv::Rect(64 * i + 3, 0, 30, 22));
    const cv::Mat under = grid(cv::Rect(3, 36 * i - 14, 50, 12));
    for (const cv::Mat& label : {beside, under}) {
      double low = 0;
      double high = 0;
      cv::minMaxLoc(label.reshape(1), &low, &high);
      EXPECT_LT(low, 40) << "black around";
      EXPECT_GT(high, 200) << "white letters";
    }
  }
}

TEST(Grid, SmallAndLargePicturesDoNotFail) {
  for (const cv::Size size : {cv::Size(1, 1), cv::Size(9, 5), cv::Size(3840, 2160)}) {
    EXPECT_EQ(host::drawGrid(cv::Mat(size, CV_8UC3, cv::Scalar::all(kGrey))).size(), size);
  }
}

TEST(GridCommand, WritesTheNamedFrameOfAVideo) {
  const TempFolder folder;
  const std::string clip = folder.file("scene.avi");
  const std::string picture = folder.file("grid.png");
  ASSERT_EQ(runProgram({"draw-scene", clip, "--frames", "5"}).status, 0);
  const ProgramResult run = runProgram({"grid", clip, "--start", "3", "--out", picture});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("grid.png: 640 x 360 pixels"), std::string::npos) << run.out;
  const cv::Mat grid = cv::imread(picture);
  EXPECT_TRUE(hasLine(grid, {320, 0}, {320, 359}));
  const ProgramResult other = runProgram({"grid", clip, "--out", folder.file("first.png")});
  EXPECT_EQ(other.status, 0) << other.err;
  EXPECT_GT(cv::norm(grid, cv::imread(folder.file("first.png")), cv::NORM_INF), 30) << "another frame";
}

TEST(GridCommand, SaysInASentenceWhatIsWrong) {
  const TempFolder folder;
  const std::string clip = folder.file("scene.avi");
  ASSERT_EQ(runProgram({"draw-scene", clip, "--frames", "2"}).status, 0);
  expectOneSentence(runProgram({"grid", folder.file("none.mp4")}), 3, "none.mp4");
  expectOneSentence(runProgram({"grid", clip, "--out", folder.file("grid.txt")}), 2, "grid.txt");
  expectOneSentence(runProgram({"grid", clip, "--out", folder.file("no/such/grid.png")}), 2, "grid.png");
  expectOneSentence(runProgram({"grid", clip, "--start", "50", "--out", folder.file("grid.png")}), 3, "scene.avi");
  EXPECT_FALSE(fs::exists(folder.file("grid.png")));
  expectOneSentence(runProgram({"grid"}), 2, "one source is needed");
  expectOneSentence(runProgram({"grid", clip, "--gstreamer", "videotestsrc ! appsink name=out"}), 2,
                    "one source is needed");
  expectOneSentence(runProgram({"grid", "/dev/video97", "--out", folder.file("grid.png")}), 3, "/dev/video97");
}

}  // namespace
}  // namespace host_test
