#include "footage.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace bench {
namespace {

cv::Mat greyOf(const cv::Mat& bgr) {
  cv::Mat grey, picture;
  cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
  cv::cvtColor(grey, picture, cv::COLOR_GRAY2BGR);
  return picture;
}

}  // namespace

Footage::Footage(const std::string& source, const FootageOptions& options) : options_(options), scene_(source) {
  host::SourceOptions how;
  how.source = source;
  const auto reader = host::openFrameSource(how);
  host::SourceFrame frame;
  while (reader->read(frame)) frames_.push_back(frame);
  std::replace(scene_.begin(), scene_.end(), ' ', '_');  // a cache's keys are words
  if (!options.enlarge.empty()) {
    scene_ += "@" + std::to_string(options.enlarge.width) + "x" + std::to_string(options.enlarge.height);
  }
  if (options.grey) {
    scene_ += ",grey";
    for (host::SourceFrame& each : frames_) each.bgr = greyOf(each.bgr);
  }
  if (!options.backwards) return;
  scene_ += ",backwards";
  for (std::size_t i = 0, j = frames_.size(); i + 1 < j; ++i) std::swap(frames_[i].bgr, frames_[--j].bgr);
}

host::SourceFrame Footage::at(long index) const {
  host::SourceFrame frame = frames_.at(static_cast<std::size_t>(index));
  if (options_.enlarge.empty()) return frame;
  cv::Mat enlarged;
  cv::resize(frame.bgr, enlarged, options_.enlarge, 0.0, 0.0, cv::INTER_LINEAR);
  frame.bgr = enlarged;
  return frame;
}

cv::Size Footage::size() const {
  if (!options_.enlarge.empty() || frames_.empty()) return options_.enlarge;
  return frames_.front().bgr.size();
}

host::TruthTarget Footage::fitted(host::TruthTarget target) const {
  if (options_.backwards) {
    std::reverse(target.marks.begin(), target.marks.end());
    for (host::TruthMark& mark : target.marks) mark.frame = count() - 1 - mark.frame;
  }
  if (options_.enlarge.empty() || frames_.empty()) return target;
  const double x = static_cast<double>(options_.enlarge.width) / frames_.front().bgr.cols;
  const double y = static_cast<double>(options_.enlarge.height) / frames_.front().bgr.rows;
  for (host::TruthMark& mark : target.marks) {
    mark.box = {mark.box.x * x, mark.box.y * y, mark.box.width * x, mark.box.height * y};
  }
  return target;
}

cv::Rect whole(const cv::Rect2d& box) {
  return {cvRound(box.x), cvRound(box.y), std::max(1, cvRound(box.width)), std::max(1, cvRound(box.height))};
}

std::optional<cv::Rect2d> truthAt(const host::TruthTarget& target, long frame) {
  const auto& marks = target.marks;
  const auto next = std::lower_bound(marks.begin(), marks.end(), frame,
                                     [](const host::TruthMark& mark, long at) { return mark.frame < at; });
  if (next == marks.end() || next->absent) return std::nullopt;
  if (next->frame == frame) return next->box;
  if (next == marks.begin() || std::prev(next)->absent) return std::nullopt;
  const host::TruthMark& last = *std::prev(next);
  const double s = static_cast<double>(frame - last.frame) / static_cast<double>(next->frame - last.frame);
  const cv::Rect2d &a = last.box, &b = next->box;
  return cv::Rect2d(a.x + s * (b.x - a.x), a.y + s * (b.y - a.y), a.width + s * (b.width - a.width),
                    a.height + s * (b.height - a.height));
}

std::set<std::string> heldBack(std::vector<host::TruthTarget> targets) {
  std::stable_sort(targets.begin(), targets.end(),
                   [](const auto& a, const auto& b) { return a.marks.size() > b.marks.size(); });
  std::set<std::string> names;
  for (std::size_t i = 0; i < targets.size(); i += 2) names.insert(targets[i].name);
  return names;
}

}  // namespace bench
