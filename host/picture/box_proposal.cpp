#include "picture/box_proposal.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace host {
namespace {

constexpr double kRadius = 0.06;    // of the frame's height: how far from the point the thing may reach
constexpr double kFallback = 0.10;  // of the frame's height: the square's side
constexpr int kWorkSide = 96;       // pixels: the side of the picture that is cut
constexpr int kRounds = 3;

cv::Rect squareAbout(cv::Point point, int side, cv::Size frame) {
  const cv::Rect whole(0, 0, frame.width, frame.height);
  const cv::Rect square = cv::Rect(point.x - side / 2, point.y - side / 2, side, side) & whole;
  return square.empty() ? cv::Rect(point.x, point.y, 1, 1) & whole : square;
}

}  // namespace

BoxProposal proposeBox(const cv::Mat& bgr, cv::Point point) {
  const cv::Size frame = bgr.size();
  point.x = std::min(std::max(point.x, 0), frame.width - 1);
  point.y = std::min(std::max(point.y, 0), frame.height - 1);
  const int side = std::max(8, static_cast<int>(std::lround(frame.height * kFallback)));
  BoxProposal proposal{squareAbout(point, side, frame), false};
  const int radius = std::max(8, static_cast<int>(std::lround(frame.height * kRadius)));
  const cv::Rect window = squareAbout(point, radius * 4, frame);
  if (window.width < 16 || window.height < 16) return proposal;
  const double scale = std::min(1.0, static_cast<double>(kWorkSide) / std::max(window.width, window.height));
  cv::Mat small;
  cv::resize(bgr(window), small, {}, scale, scale, cv::INTER_AREA);
  const cv::Point2d middle((point.x - window.x) * scale, (point.y - window.y) * scale);
  cv::Mat mask(small.size(), CV_8UC1, cv::Scalar(cv::GC_BGD));
  cv::circle(mask, middle, static_cast<int>(radius * 1.8 * scale), cv::Scalar(cv::GC_PR_BGD), cv::FILLED);
  cv::circle(mask, middle, static_cast<int>(radius * 0.8 * scale), cv::Scalar(cv::GC_PR_FGD), cv::FILLED);
  cv::circle(mask, middle, std::max(1, static_cast<int>(radius * 0.2 * scale)), cv::Scalar(cv::GC_FGD), cv::FILLED);
  cv::Mat ground;
  cv::Mat thing;
  cv::setRNGSeed(1);  // the colours are clustered from drawn numbers: the same click gives the same box
  cv::grabCut(small, mask, {}, ground, thing, kRounds, cv::GC_INIT_WITH_MASK);
  const cv::Mat is = (mask & 1) != 0;
  cv::Mat labels;
  cv::Mat stats;
  cv::Mat centres;
  cv::connectedComponentsWithStats(is, labels, stats, centres, 4);
  const int label = labels.at<int>(std::min(static_cast<int>(middle.y), labels.rows - 1),
                                   std::min(static_cast<int>(middle.x), labels.cols - 1));
  if (label == 0) return proposal;
  const cv::Rect found(stats.at<int>(label, cv::CC_STAT_LEFT), stats.at<int>(label, cv::CC_STAT_TOP),
                       stats.at<int>(label, cv::CC_STAT_WIDTH), stats.at<int>(label, cv::CC_STAT_HEIGHT));
  const cv::Rect box(window.x + static_cast<int>(std::lround(found.x / scale)),
                     window.y + static_cast<int>(std::lround(found.y / scale)),
                     static_cast<int>(std::lround(found.width / scale)),
                     static_cast<int>(std::lround(found.height / scale)));
  const double share = static_cast<double>(box.area()) / (static_cast<double>(side) * side);
  if (share < 0.15 || share > 5.0) return proposal;
  return {box & cv::Rect(0, 0, frame.width, frame.height), true};
}

}  // namespace host
