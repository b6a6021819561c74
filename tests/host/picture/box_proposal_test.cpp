// A point becomes a box: on drawn things whose true box is known.
#include "picture/box_proposal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace host {
namespace {

constexpr int kSeed = 11;

double overlap(const cv::Rect& a, const cv::Rect& b) {
  const double both = (a & b).area();
  return both / (a.area() + b.area() - both);
}

/// A ground of coarse grey noise, as asphalt or grass has it.
cv::Mat ground(cv::Size size) {
  cv::RNG random(kSeed);
  cv::Mat small(size.height / 4, size.width / 4, CV_8UC3);
  random.fill(small, cv::RNG::UNIFORM, 85, 125);
  cv::Mat picture;
  cv::resize(small, picture, size, 0, 0, cv::INTER_LINEAR);
  return picture;
}

/// A walker of two colours and a head. @return its true box
cv::Rect drawWalker(cv::Mat& picture, cv::Point middle, int height) {
  const int width = height * 2 / 5;
  const cv::Rect box(middle.x - width / 2, middle.y - height / 2, width, height);
  const int head = height / 6;
  cv::circle(picture, {middle.x, box.y + head}, head, {120, 160, 210}, cv::FILLED, cv::LINE_AA);
  cv::rectangle(picture, {box.x, box.y + head * 2, box.width, height / 3}, {40, 40, 190}, cv::FILLED);
  cv::rectangle(picture, {box.x + width / 8, box.y + head * 2 + height / 3, width * 3 / 4, height / 3 + 1},
                {70, 30, 25}, cv::FILLED);
  return {box.x, box.y, box.width, head * 2 + height / 3 + height / 3 + 1};
}

/// The corners and the middle of a box shrunk to 30 % of its sides: where a hand clicks that meant the middle.
std::vector<cv::Point> clicksOn(const cv::Rect& box) {
  std::vector<cv::Point> clicks;
  for (const double dx : {-0.15, 0.0, 0.15}) {
    for (const double dy : {-0.15, 0.0, 0.15}) {
      clicks.emplace_back(box.x + static_cast<int>(box.width * (0.5 + dx)),
                          box.y + static_cast<int>(box.height * (0.5 + dy)));
    }
  }
  return clicks;
}

TEST(BoxProposal, FindsADrawnWalkerFromEveryClickNearItsMiddle) {
  double sum = 0;
  int count = 0;
  for (const cv::Size size : {cv::Size(640, 360), cv::Size(1280, 720), cv::Size(1920, 1080)}) {
    for (const double share : {0.09, 0.12, 0.16}) {
      cv::Mat picture = ground(size);
      const cv::Rect truth =
          drawWalker(picture, {size.width * 2 / 5, size.height / 2}, static_cast<int>(size.height * share));
      for (const cv::Point click : clicksOn(truth)) {
        const double found = overlap(proposeBox(picture, click).box, truth);
        EXPECT_GT(found, 0.3) << size << " share " << share << " click " << click;
        sum += found;
        ++count;
      }
    }
  }
  EXPECT_GE(sum / count, 0.55);
}

TEST(BoxProposal, APlainGroundGivesTheSquare) {
  const cv::Mat picture(360, 640, CV_8UC3, cv::Scalar::all(100));
  const BoxProposal proposal = proposeBox(picture, {320, 180});
  EXPECT_FALSE(proposal.segmented);
  EXPECT_EQ(proposal.box, cv::Rect(302, 162, 36, 36)) << "a tenth of the height about the point";
}

TEST(BoxProposal, ASpeckIsNotPlausible) {
  cv::Mat picture = ground({640, 360});
  cv::circle(picture, {320, 180}, 3, {255, 255, 255}, cv::FILLED);
  EXPECT_FALSE(proposeBox(picture, {320, 180}).segmented);
}

TEST(BoxProposal, IsInsideThePictureWhereverThePointLies) {
  cv::Mat picture = ground({320, 240});
  drawWalker(picture, {4, 236}, 40);
  const cv::Rect whole(0, 0, picture.cols, picture.rows);
  for (const cv::Point point :
       {cv::Point(0, 0), cv::Point(319, 239), cv::Point(-50, 1000), cv::Point(3, 235), cv::Point(319, 0)}) {
    const cv::Rect box = proposeBox(picture, point).box;
    EXPECT_EQ(box & whole, box) << point;
    EXPECT_GE(box.area(), 1) << point;
  }
}

TEST(BoxProposal, SmallPicturesDoNotFail) {
  for (const cv::Size size : {cv::Size(1, 1), cv::Size(3, 40), cv::Size(17, 15), cv::Size(33, 33)}) {
    const cv::Rect box = proposeBox(cv::Mat(size, CV_8UC3, cv::Scalar::all(50)), {size.width / 2, size.height / 2}).box;
    EXPECT_EQ(box & cv::Rect({0, 0}, size), box) << size;
    EXPECT_GE(box.area(), 1) << size;
  }
}

TEST(BoxProposal, TheSameClickGivesTheSameBox) {
  cv::Mat picture = ground({640, 360});
  drawWalker(picture, {300, 180}, 44);
  const cv::Rect first = proposeBox(picture, {300, 180}).box;
  cv::theRNG().state = 12345;  // whatever else drew numbers meanwhile
  EXPECT_EQ(proposeBox(picture, {300, 180}).box, first);
}

}  // namespace
}  // namespace host
