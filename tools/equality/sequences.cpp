#include "sequences.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <stdexcept>

namespace equality {
namespace {

cv::Mat noise(const cv::Size& size, int cell, int low, int high, cv::RNG& random) {
  cv::Mat coarse(size.height / cell + 2, size.width / cell + 2, CV_8UC3);
  random.fill(coarse, cv::RNG::UNIFORM, cv::Scalar::all(low), cv::Scalar::all(high));
  cv::Mat fine;
  cv::resize(coarse, fine, size, 0, 0, cv::INTER_CUBIC);
  return fine;
}

/// A patterned target that walks, grows, shrinks and turns before a background that drifts; some frames are flat.
Sequence drawnScene(const std::string& name, const cv::Size& size, const cv::Size& target, int frames,
                    std::uint64_t seed) {
  cv::RNG random(seed);
  const cv::Mat background = noise({size.width + frames * 2, size.height}, 20, 50, 200, random);
  const cv::Mat pattern = noise(target, 5, 0, 256, random);
  Sequence sequence{name, {}, {}};
  for (int i = 0; i < frames; ++i) {
    cv::Mat frame = background(cv::Rect(i, 0, size.width, size.height)).clone();
    const double scale = 1.0 + 0.25 * std::sin(0.12 * i);
    const cv::Point2d middle(size.width * (0.35 + 0.2 * std::sin(0.05 * i)),
                             size.height * (0.5 + 0.1 * std::cos(0.07 * i)));
    cv::Mat turn = cv::getRotationMatrix2D(
        {static_cast<float>(target.width) / 2, static_cast<float>(target.height) / 2}, 6.0 * std::sin(0.09 * i), scale);
    turn.at<double>(0, 2) += middle.x - target.width / 2.0;
    turn.at<double>(1, 2) += middle.y - target.height / 2.0;
    cv::warpAffine(pattern, frame, turn, size, cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
    if (i % 23 == 22) frame.setTo(cv::Scalar(90, 90, 90));
    cv::Mat grain(size, CV_8UC3);
    random.fill(grain, cv::RNG::UNIFORM, cv::Scalar::all(0), cv::Scalar::all(6));
    sequence.frames.push_back(frame + grain);
    if (i == 0) sequence.known = {cv::Point(middle) - cv::Point(target) / 2, target};
  }
  return sequence;
}

std::vector<cv::Mat> readClip(const std::string& path, int first, int count) {
  cv::VideoCapture clip(path);
  std::vector<cv::Mat> frames;
  cv::Mat frame;
  for (int i = 0; i < first + count && clip.read(frame); ++i) {
    if (i >= first) frames.push_back(frame.clone());
  }
  if (frames.empty()) throw std::runtime_error("the clip '" + path + "' cannot be read, or is too short");
  return frames;
}

std::vector<cv::Mat> readFolder(const std::string& folder, int most) {
  std::vector<std::string> names;
  cv::glob(folder + "/*", names);
  std::vector<cv::Mat> frames;
  for (const std::string& name : names) {
    cv::Mat picture = cv::imread(name, cv::IMREAD_COLOR);
    if (picture.empty() || (!frames.empty() && picture.size() != frames.front().size())) continue;
    frames.push_back(picture);
    if (static_cast<int>(frames.size()) == most) break;
  }
  if (frames.size() < 2)
    throw std::runtime_error("the folder '" + folder + "' holds fewer than two pictures of one size");
  return frames;
}

Sequence scaled(const Sequence& from, double factor, int interpolation, const std::string& what) {
  Sequence sequence{from.name + ", " + what, {}, {}};
  for (const cv::Mat& frame : from.frames) {
    cv::resize(frame, sequence.frames.emplace_back(), {}, factor, factor, interpolation);
  }
  const auto side = [factor](int value) { return static_cast<int>(value * factor); };
  sequence.known = {side(from.known.x), side(from.known.y), side(from.known.width), side(from.known.height)};
  return sequence;
}

/// A fixed part of every frame, which targets walk into and out of.
Sequence cut(const Sequence& from, const cv::Rect& part) {
  Sequence sequence{from.name + ", cut", {}, {}};
  for (const cv::Mat& frame : from.frames) sequence.frames.push_back(frame(part));  // rows further apart than long
  if ((from.known & part) == from.known && !from.known.empty()) sequence.known = from.known - part.tl();
  return sequence;
}

Sequence grey(const Sequence& from) {
  Sequence sequence{from.name + ", grey", {}, from.known};
  for (const cv::Mat& frame : from.frames) cv::cvtColor(frame, sequence.frames.emplace_back(), cv::COLOR_BGR2GRAY);
  return sequence;
}

cv::Rect middleOf(const cv::Size& size) {
  return {size.width / 3, size.height / 4, size.width / 2, size.height / 2};
}

}  // namespace

std::vector<Sequence> makeSequences(const Material& material) {
  const int frames = material.frames;
  std::vector<Sequence> all;
  all.push_back(drawnScene("drawn, 320x240", {320, 240}, {30, 40}, frames, 1));
  all.push_back(drawnScene("drawn, 640x360", {640, 360}, {90, 60}, frames, 2));
  if (!material.isShort) {
    all.push_back(drawnScene("drawn, 1280x720", {1280, 720}, {210, 170}, frames, 3));
    all.push_back(grey(all.front()));
  }
  if (!material.clip.empty()) {
    const Sequence walker{"clip from 240", readClip(material.clip, 240, frames), {664, 268, 38, 108}};
    all.push_back(walker);
    if (!material.isShort) {
      all.push_back({"clip from 0", readClip(material.clip, 0, frames), {}});
      all.push_back({"clip from 500", readClip(material.clip, 500, frames), {}});
      all.push_back(cut(walker, middleOf(walker.frames.front().size())));
      all.push_back(scaled(walker, 1.7, cv::INTER_CUBIC, "enlarged"));
      all.push_back(scaled(walker, 0.5, cv::INTER_AREA, "halved"));
      all.push_back(grey(walker));
    }
  }
  for (const std::string& folder : material.pictures) {
    const Sequence plain{folder, readFolder(folder, frames), {}};
    all.push_back(plain);
    all.push_back(cut(plain, middleOf(plain.frames.front().size())));
    all.push_back(scaled(plain, 2.5, cv::INTER_LINEAR, "enlarged"));
  }
  return all;
}

}  // namespace equality
