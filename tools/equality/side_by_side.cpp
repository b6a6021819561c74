#include "side_by_side.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <opencv2/imgproc.hpp>
#include <sstream>

#include "csrt_engine/csrt_engine.h"
#include "tracker.h"

namespace equality {
namespace {

struct Answer {
  bool found = false;
  cv::Rect box;
  int thrown = 0;     ///< Code of the cv::Exception; 0: none was thrown.
  std::string cause;  ///< Its own words, without the place in the sources.
};

template <typename Call>
Answer answerOf(Call call) {
  Answer answer;
  try {
    answer.found = call(answer.box);
  } catch (const cv::Exception& e) {
    answer.thrown = e.code;
    answer.cause = e.err;
  }
  return answer;
}

bool operator==(const Answer& a, const Answer& b) {
  return a.found == b.found && a.box == b.box && a.thrown == b.thrown && a.cause == b.cause;
}

int distance(const cv::Rect& a, const cv::Rect& b) {
  return std::max(
      {std::abs(a.x - b.x), std::abs(a.y - b.y), std::abs(a.width - b.width), std::abs(a.height - b.height)});
}

std::string words(const Answer& answer) {
  std::ostringstream text;
  if (answer.thrown != 0) {
    text << "exception " << answer.thrown << " (" << answer.cause << ")";
  } else {
    text << (answer.found ? "" : "lost ") << answer.box;
  }
  return text.str();
}

/// What was rounded to the box: a difference that comes from last digits alone lies at a half.
std::string beforeRounding(const cv::tracking::TrackerCSRT& engine) {
  const auto* own = dynamic_cast<const csrt_engine::EngineTracker*>(&engine);
  const cv::Rect2f box = own != nullptr ? own->unrounded() : cv::Rect2f();
  if (box.empty()) return "";
  std::ostringstream text;
  text << std::fixed << std::setprecision(5) << ", before rounding " << box.width << " x " << box.height << " from ("
       << box.x << ", " << box.y << ")";
  return text.str();
}

void judge(const Answer& opencv, const Answer& engine, const Start& start, int frame, Comparison& all) {
  ++all.frames;
  all.answers += words(opencv) + "\n";
  all.exceptions += opencv.thrown != 0 ? 1 : 0;
  all.lost += opencv.thrown == 0 && !opencv.found ? 1 : 0;
  if (opencv == engine) return;
  ++all.different;
  all.largest = std::max(all.largest, distance(opencv.box, engine.box));
  if (!all.first.empty()) return;
  std::ostringstream text;
  text << start.sequence->name << ", from frame " << start.first << " on " << start.box << ", " << frame
       << " frames later: OpenCV " << words(opencv) << ", engine " << words(engine);
  all.first = text.str();
}

cv::Mat ellipse(const cv::Size& size, const cv::Rect& box) {
  cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
  cv::ellipse(mask, (box.tl() + box.br()) / 2, box.size() / 2, 0, 0, 360, cv::Scalar(1), cv::FILLED);
  return mask;
}

/// How much moves inside the box between a frame and one a little later.
double motion(const Sequence& sequence, int frame, const cv::Rect& box) {
  const auto at = static_cast<std::size_t>(frame);
  const cv::Mat& now = sequence.frames[at];
  const cv::Mat& later = sequence.frames[std::min(at + 4, sequence.frames.size() - 1)];
  const cv::Rect inside = box & cv::Rect({0, 0}, now.size());
  return inside.empty() ? 0.0 : cv::norm(now(inside), later(inside), cv::NORM_L1) / inside.area();
}

cv::Rect anyBox(const cv::Size& frame, cv::RNG& random, bool overTheEdge) {
  const double side = std::exp(random.uniform(std::log(14.0), std::log(std::min(frame.width, frame.height) * 0.6)));
  const double shape = std::exp(random.uniform(-0.8, 0.8));
  const cv::Size size(std::max(8, cvRound(side * shape)), std::max(8, cvRound(side / shape)));
  const cv::Size bound(std::min(size.width, frame.width), std::min(size.height, frame.height));
  const cv::Point over = overTheEdge ? cv::Point(size) / 3 : cv::Point(0, 0);
  const int x = random.uniform(-over.x, frame.width - bound.width + over.x + 1);
  const int y = random.uniform(-over.y, frame.height - bound.height + over.y + 1);
  return {{x, y}, bound};
}

cv::Rect jittered(const cv::Rect& box, cv::RNG& random) {
  const auto by = [&random](int side) { return cvRound(random.uniform(-0.2, 0.2) * side); };
  return {box.x + by(box.width), box.y + by(box.height), box.width + by(box.width), box.height + by(box.height)};
}

}  // namespace

void Comparison::add(const Comparison& other) {
  frames += other.frames;
  different += other.different;
  largest = std::max(largest, other.largest);
  lost += other.lost;
  exceptions += other.exceptions;
  if (first.empty()) first = other.first;
  answers += other.answers;
}

std::vector<Start> startsOn(const Sequence& sequence, int count, std::uint64_t seed) {
  constexpr int kCandidates = 12;
  cv::RNG random(seed);
  const cv::Size frame = sequence.frames.front().size();
  const int last = static_cast<int>(sequence.frames.size()) / 3;
  std::vector<Start> starts;
  for (int i = 0; i < count; ++i) {
    Start start;
    start.sequence = &sequence;
    start.withMask = i % 11 == 10;
    if (!sequence.known.empty() && i % 4 == 0) {
      start.box = i == 0 ? sequence.known : jittered(sequence.known, random);
    } else {
      start.first = random.uniform(0, last + 1);
      start.box = anyBox(frame, random, i % 4 == 3);
      for (int k = 0; i % 4 != 3 && k < kCandidates; ++k) {
        const cv::Rect other = anyBox(frame, random, false);
        if (motion(sequence, start.first, other) > motion(sequence, start.first, start.box)) start.box = other;
      }
    }
    starts.push_back(start);
  }
  return starts;
}

Comparison compare(const Start& start, int frames) {
  const auto opencv = cv::tracking::TrackerCSRT::create(start.params);
  const auto engine = csrt_engine::create(start.params);
  const auto begin = [&start](cv::tracking::TrackerCSRT& tracker) {
    return answerOf([&](cv::Rect& /*box*/) {
      const cv::Mat& picture = start.sequence->frames[static_cast<std::size_t>(start.first)];
      if (start.withMask) tracker.setInitialMask(ellipse(picture.size(), start.box));
      tracker.init(picture, start.box);
      return true;
    });
  };
  Comparison all;
  const auto judged = [&](const Answer& a, const Answer& b, int frame) {
    const bool isFirst = all.first.empty();
    judge(a, b, start, frame, all);
    if (isFirst && !all.first.empty()) all.first += beforeRounding(*engine);
  };
  const Answer begun = begin(*opencv);
  judged(begun, begin(*engine), 0);
  const int last = std::min(static_cast<int>(start.sequence->frames.size()), start.first + frames);
  for (int i = start.first + 1; begun.thrown == 0 && i < last; ++i) {
    const cv::Mat& picture = start.sequence->frames[static_cast<std::size_t>(i)];
    const Answer a = answerOf([&](cv::Rect& box) { return opencv->update(picture, box); });
    const Answer b = answerOf([&](cv::Rect& box) { return engine->update(picture, box); });
    judged(a, b, i - start.first);
    if (a.thrown != 0 || b.thrown != 0) break;
  }
  return all;
}

}  // namespace equality
