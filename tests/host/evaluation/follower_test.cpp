// The bare tracker beside the plug-in runs what the plug-in would run.
#include "evaluation/follower.h"

#include <gtest/gtest.h>

#include <vector>

#include "picture/street_scene.h"

namespace host {
namespace {

/// The boxes of the first frames of the drawn street; empty when the start is refused.
std::vector<cv::Rect2d> boxesWith(const std::string& configText) {
  const StreetScene scene({320, 240}, kStreetSceneSeed);
  const std::unique_ptr<Follower> follower = makeReferenceFollower(&configText);
  std::vector<cv::Rect2d> boxes;
  for (int i = 0; i < 4; ++i) {
    const auto picture = std::make_shared<ocula::OculaPicture>(scene.frame(i));
    SourceFrame frame;
    frame.index = i;
    if (i == 0) {
      if (!follower->init(picture, frame, scene.truth(0))) return {};
      continue;
    }
    boxes.push_back(follower->update(picture, frame).box.value_or(cv::Rect2d()));
  }
  return boxes;
}

TEST(ReferenceFollower, ClampsItsParametersAsThePluginDoes) {
  const std::vector<cv::Rect2d> clamped = boxesWith(R"({"csrt": {"template_size": 32, "filter_lr": 1.0}})");
  ASSERT_EQ(clamped.size(), 3U);
  EXPECT_EQ(boxesWith(R"({"csrt": {"template_size": 8, "filter_lr": 40}})"), clamped);
  EXPECT_EQ(boxesWith(R"({"csrt": {"template_size": "32", "filter_lr": "1.0"}})"), clamped) << "numbers as text";
  EXPECT_NE(boxesWith("{}"), clamped);
}

TEST(ReferenceFollower, RefusesAStartWithoutAFeature) {
  EXPECT_TRUE(boxesWith(R"({"csrt": {"use_hog": false, "use_color_names": false, "use_rgb": false}})").empty());
}

}  // namespace
}  // namespace host
