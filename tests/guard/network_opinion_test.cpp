// The second opinion by OpenCV's tracker network: with a tiny network that finds what is bright, with broken and
// foreign files, and with ViTTrack itself where CSRT_VITTRACK names its file.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <opencv2/core/utils/logger.hpp>

#include "csrt_guard/network_opinion.h"
#include "guard_scene.h"
#include "support/tiny_network.h"

using csrt_guard::Opinion;
using csrt_guard::readNetworkOpinion;
using csrt_guard::SecondOpinion;

namespace {

const Clothes kBright{{230, 230, 230}, {230, 230, 230}};

std::string fileWith(const std::string& bytes) {
  const std::string path = testing::TempDir() + "network_opinion_test.onnx";
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  return path;
}

class NetworkOpinion : public testing::Test {
 protected:
  static void SetUpTestSuite() { cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT); }
  void SetUp() override {
    const std::string path = fileWith(tiny_network::bytes());
    opinion = readNetworkOpinion(path, fault);
    std::remove(path.c_str());  // read once, not needed later
    ASSERT_NE(opinion, nullptr) << fault;
  }
  static cv::Mat pictureOf(const cv::Rect& person, const cv::Size& size = {640, 360}) {
    cv::Mat picture = groundOf(size);
    drawPerson(picture, person, kBright);
    return picture;
  }

  std::string fault;
  std::unique_ptr<SecondOpinion> opinion;
};

TEST_F(NetworkOpinion, FindsTheTargetWhereItWentInFullFramePixels) {
  const cv::Rect first = personAt(200, 150);
  ASSERT_TRUE(opinion->start(pictureOf(first), first));
  const cv::Rect moved = personAt(225, 140);
  const std::optional<Opinion> found = opinion->look(pictureOf(moved), first);
  ASSERT_TRUE(found);
  const cv::Point2d off(found->box.x + found->box.width / 2.0 - (moved.x + moved.width / 2.0),
                        found->box.y + found->box.height / 2.0 - (moved.y + moved.height / 2.0));
  EXPECT_LT(std::abs(off.x), 10.0) << found->box;  // a square of the network has 9 pixels here
  EXPECT_LT(std::abs(off.y), 25.0) << found->box;
  EXPECT_NEAR(std::sqrt(found->box.area()), std::sqrt(kPerson.area()), 2.0) << "its size follows from where it looked";
  EXPECT_GT(found->score, 0.3);
}

TEST_F(NetworkOpinion, IsLessSureWhereTheTargetIsNot) {
  const cv::Rect box = personAt(200, 150);
  const cv::Mat picture = pictureOf(box);
  ASSERT_TRUE(opinion->start(picture, box));
  const std::optional<Opinion> there = opinion->look(picture, box);
  const std::optional<Opinion> elsewhere = opinion->look(picture, personAt(500, 100));
  ASSERT_TRUE(there && elsewhere);
  EXPECT_GT(there->score, elsewhere->score + 0.2);
}

TEST_F(NetworkOpinion, SaysTheSameOfAFrameWhateverItLookedAtBefore) {
  const cv::Rect box = personAt(200, 150);
  const cv::Mat picture = pictureOf(box);
  ASSERT_TRUE(opinion->start(picture, box));
  const std::optional<Opinion> before = opinion->look(picture, box);
  for (int i = 0; i < 5; ++i) opinion->look(pictureOf(personAt(300 + 30 * i, 100)), personAt(320 + 30 * i, 100));
  const std::optional<Opinion> after = opinion->look(picture, box);
  ASSERT_TRUE(before && after);
  EXPECT_EQ(before->box, after->box);
  EXPECT_EQ(before->score, after->score);
}

TEST_F(NetworkOpinion, LooksBeyondEveryBorderOfThePicture) {
  const cv::Rect box = personAt(5, 5);
  ASSERT_TRUE(opinion->start(pictureOf(box), box));
  const cv::Mat picture = pictureOf(box);
  for (const cv::Rect& around : {personAt(-20, -50), personAt(620, 330), personAt(-23, 359), personAt(639, -59)}) {
    EXPECT_TRUE(opinion->look(picture, around)) << around;
  }
}

TEST_F(NetworkOpinion, SaysNothingOfWhatCannotBeLookedAt) {
  const cv::Rect box = personAt(200, 150);
  const cv::Mat picture = pictureOf(box);
  EXPECT_FALSE(opinion->look(picture, box)) << "before start()";
  EXPECT_FALSE(opinion->start(cv::Mat(), box));
  EXPECT_FALSE(opinion->start(picture, {700, 10, 20, 40})) << "outside the picture";
  ASSERT_TRUE(opinion->start(picture, box));
  EXPECT_FALSE(opinion->look(cv::Mat(), box));
  EXPECT_FALSE(opinion->look(cv::Mat(360, 640, CV_32FC3, cv::Scalar()), box));
  EXPECT_FALSE(opinion->look(picture, {10, 10, 0, 40}));
  EXPECT_FALSE(opinion->look(picture, {10, 10, -5, 40}));
  EXPECT_FALSE(opinion->look(picture, {2000000000, 10, 2000000000, 40}));
  EXPECT_FALSE(opinion->look(picture, {640, 0, 20, 20})) << "outside the picture";
  EXPECT_FALSE(opinion->start(picture, {10, 10, 1, 1}));
  EXPECT_FALSE(opinion->look(picture, box)) << "the target before is forgotten";
}

TEST_F(NetworkOpinion, TakesGreyPicturesPicturesWithAlphaAndTargetsAsLargeAsThePicture) {
  const cv::Rect box = personAt(200, 150);
  cv::Mat grey, alpha;
  cv::cvtColor(pictureOf(box), grey, cv::COLOR_BGR2GRAY);
  cv::cvtColor(pictureOf(box), alpha, cv::COLOR_BGR2BGRA);
  for (const cv::Mat& picture : {grey, alpha}) {
    ASSERT_TRUE(opinion->start(picture, box));
    EXPECT_TRUE(opinion->look(picture, box));
    const cv::Rect whole({}, picture.size());
    ASSERT_TRUE(opinion->start(picture, whole));
    EXPECT_TRUE(opinion->look(picture, whole));
    ASSERT_TRUE(opinion->start(picture, {10, 10, 2, 3}));
    EXPECT_TRUE(opinion->look(picture, {10, 10, 2, 3}));
  }
}

TEST(NetworkFile, ThatIsNoSuchNetworkIsRefusedInOneLine) {
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  const std::string whole = tiny_network::bytes();
  for (const std::string& wrong : {std::string(), std::string("not a network"), whole.substr(0, whole.size() / 2),
                                   whole.substr(0, 100), tiny_network::bytes("picture")}) {
    std::string fault;
    EXPECT_EQ(readNetworkOpinion(fileWith(wrong), fault), nullptr) << wrong.size();
    EXPECT_NE(fault, "");
    EXPECT_EQ(fault.find('\n'), std::string::npos) << fault;
  }
  std::string fault;
  EXPECT_EQ(readNetworkOpinion("/no/such/file.onnx", fault), nullptr);
  EXPECT_NE(fault, "");
}

TEST(NetworkFile, ViTTrackItselfFollowsADrawnPersonAndIsUnsureOfTheGround) {
  const char* const file = std::getenv("CSRT_VITTRACK");
  if (file == nullptr) GTEST_SKIP() << "CSRT_VITTRACK names no file of the published network";
  std::string fault;
  const std::unique_ptr<SecondOpinion> opinion = readNetworkOpinion(file, fault);
  ASSERT_NE(opinion, nullptr) << fault;
  cv::Rect person = personAt(200, 150);
  cv::Mat picture = groundOf();
  drawPerson(picture, person, kRedBlue);
  ASSERT_TRUE(opinion->start(picture, person));
  const cv::Rect moved = personAt(206, 152);
  picture = groundOf();
  drawPerson(picture, moved, kRedBlue);
  const std::optional<Opinion> found = opinion->look(picture, person);
  const std::optional<Opinion> nothing = opinion->look(groundOf(), person);
  ASSERT_TRUE(found && nothing);
  EXPECT_GT(overlapOf(found->box, moved), 0.6) << found->box;
  EXPECT_GT(found->score, nothing->score);
}

}  // namespace
