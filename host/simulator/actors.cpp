#include "simulator/actors.h"

#include <algorithm>
#include <cstddef>

namespace host::sim {
namespace {

constexpr int kSamples = 24;  // per side: a share within about 2 %

bool covered(const cv::Point2d& point, const std::vector<cv::Rect2d>& covers) {
  return std::any_of(covers.begin(), covers.end(), [&point](const cv::Rect2d& cover) { return cover.contains(point); });
}

}  // namespace

bool isThere(const Actor& actor, double t_s) {
  return t_s >= actor.from_s && t_s < actor.until_s;
}

Angles placeOf(const Actor& actor, double t_s) {
  const std::vector<Waypoint>& path = actor.path;
  const auto later = std::upper_bound(path.begin(), path.end(), t_s,
                                      [](double t, const Waypoint& waypoint) { return t < waypoint.t_s; });
  if (later == path.begin()) return path.front().at;
  if (later == path.end()) return path.back().at;
  const Waypoint& from = *(later - 1);
  const double share = (t_s - from.t_s) / (later->t_s - from.t_s);
  return {from.at.pan + share * (later->at.pan - from.at.pan), from.at.tilt + share * (later->at.tilt - from.at.tilt)};
}

cv::Rect2d boxOf(const Actor& actor, double t_s, const View& view, cv::Size frame) {
  return boxOf(placeOf(actor, t_s), actor.size, view, frame);
}

double visibleShare(const cv::Rect2d& box, const std::vector<cv::Rect2d>& covers, cv::Size frame) {
  const cv::Rect2d inside(0, 0, frame.width, frame.height);
  int seen = 0;
  for (int row = 0; row < kSamples; ++row) {
    for (int column = 0; column < kSamples; ++column) {
      const cv::Point2d point(box.x + (column + 0.5) / kSamples * box.width,
                              box.y + (row + 0.5) / kSamples * box.height);
      if (inside.contains(point) && !covered(point, covers)) ++seen;
    }
  }
  return static_cast<double>(seen) / (kSamples * kSamples);
}

}  // namespace host::sim
