#include "backdrop.h"

#include <opencv2/imgproc.hpp>

namespace csrt_guard {
namespace {

const cv::Size kPicture(96, 54);
constexpr int kFiner = 5;       // samples a side of each of its pixels
constexpr int kKept = 45;       // frames
constexpr int kFarX = 10;       // of its pixels that it may have moved ...
constexpr int kFarY = 6;        // ... at most
constexpr double kMost = 20.0;  // grey levels that a pixel may differ by: the rest is what moves in front
constexpr double kTells = 0.5;  // grey levels more than where they differ least, on average of all, that say something

/// Mean difference of two pictures of which the second moved by so much.
double differenceOf(const cv::Mat& before, const cv::Mat& now, const cv::Point& moved) {
  const cv::Rect all({}, kPicture);
  const cv::Rect there = (all + moved) & all;
  cv::Mat difference;
  cv::absdiff(before(there - moved), now(there), difference);
  cv::min(difference, kMost, difference);
  return cv::mean(difference)[0];
}

}  // namespace

void Backdrop::note(const cv::Mat& frame, int frames) {
  frame_ = frame.size();
  cv::Mat samples;
  cv::resize(frame, samples, kPicture * kFiner, 0, 0, cv::INTER_NEAREST);
  if (samples.channels() > 1) cv::extractChannel(samples, samples, 1);
  Note now;
  cv::resize(samples, now.picture, kPicture, 0, 0, cv::INTER_AREA);
  for (Note& note : notes_) note.ago += frames;
  while (!notes_.empty() && notes_.front().ago > kKept) notes_.pop_front();
  notes_.push_back(now);
}

std::optional<cv::Point2d> Backdrop::movedSince(int frames) const {
  const Note* then = nullptr;
  for (const Note& note : notes_) {
    if (note.ago >= frames) then = &note;
  }
  if (then == nullptr) return std::nullopt;
  double sum = 0.0;
  int places = 0;
  cv::Point best;
  double least = differenceOf(then->picture, notes_.back().picture, best);
  for (int y = -kFarY; y <= kFarY; ++y) {
    for (int x = -kFarX; x <= kFarX; ++x) {
      const double difference = differenceOf(then->picture, notes_.back().picture, {x, y});
      sum += difference;
      ++places;
      if (difference >= least) continue;
      least = difference;
      best = {x, y};
    }
  }
  if (sum / places < least + kTells) return std::nullopt;
  return cv::Point2d(best.x * frame_.width / static_cast<double>(kPicture.width),
                     best.y * frame_.height / static_cast<double>(kPicture.height));
}

}  // namespace csrt_guard
