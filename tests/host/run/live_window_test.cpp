// The live window, as far as it goes without a display.
#include "run/live_window.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/host_program.h"

namespace host {
namespace {

TEST(DraggedBox, TakesTheCornersInAnyOrder) {
  const cv::Rect expected(10, 20, 30, 40);
  EXPECT_EQ(draggedBox({10, 20}, {40, 60}, {640, 360}), expected);
  EXPECT_EQ(draggedBox({40, 60}, {10, 20}, {640, 360}), expected);
}

TEST(DraggedBox, IsCutAtTheFrame) {
  EXPECT_EQ(draggedBox({600, 300}, {900, 900}, {640, 360}), cv::Rect(600, 300, 40, 60));
  EXPECT_EQ(draggedBox({-9, -9}, {20, 20}, {640, 360}), cv::Rect(0, 0, 20, 20));
}

TEST(DraggedBox, AClickIsNoBox) {
  EXPECT_FALSE(draggedBox({10, 20}, {10, 20}, {640, 360}));
  EXPECT_FALSE(draggedBox({10, 20}, {13, 90}, {640, 360}));
  EXPECT_TRUE(draggedBox({10, 20}, {14, 24}, {640, 360}));
  EXPECT_FALSE(draggedBox({700, 400}, {800, 500}, {640, 360}));
}

class Display : public testing::Test {
 protected:
  void SetUp() override {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
  }
};

TEST_F(Display, WithoutOneTheErrorSaysWhatToDo) {
  EXPECT_NE(displayFault().find("--video FILE"), std::string::npos);
  setenv("DISPLAY", ":4711", 1);
  EXPECT_NE(displayFault().find("':4711' does not answer"), std::string::npos);
  setenv("WAYLAND_DISPLAY", "wayland-0", 1);
  EXPECT_EQ(displayFault(), "");
}

TEST_F(Display, TheProgramSaysTheSameInsteadOfCrashing) {
  const host_test::TempFolder folder;
  writeStreetScene(folder.file("scene.avi"), {320, 180}, 2, 10.0);
  const std::vector<std::string> track = {"track", folder.file("scene.avi"), "--show", "--plugin", CSRT_FAKE_PLUGIN};
  host_test::expectOneSentence(host_test::runProgram(track), 2, "--show needs a display");
  setenv("DISPLAY", ":4711", 1);
  host_test::expectOneSentence(host_test::runProgram(track), 2, "':4711'");
}

}  // namespace
}  // namespace host
