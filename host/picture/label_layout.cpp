#include "picture/label_layout.h"

#include <algorithm>
#include <optional>

namespace host {
namespace {

cv::Rect inside(cv::Rect r, const cv::Size& picture) {
  r.x = std::clamp(r.x, 0, std::max(0, picture.width - r.width));
  r.y = std::clamp(r.y, 0, std::max(0, picture.height - r.height));
  return r;
}

bool coversAny(const cv::Rect& r, const std::vector<cv::Rect>& others) {
  return std::any_of(others.begin(), others.end(), [&r](const cv::Rect& other) { return (r & other).area() > 0; });
}

/// The places at a distance of so many labels, best first.
std::vector<cv::Point> placesAt(int ring, const cv::Size& label, const cv::Rect& a) {
  const int up = a.y - label.height * (ring + 1);
  const int down = a.y + a.height + label.height * ring;
  const int left = a.x - label.width - label.height * ring;
  const int right = a.x + a.width + label.height * ring;
  const int rightAligned = a.x + a.width - label.width;
  return {{a.x, up},   {a.x, down}, {rightAligned, up}, {rightAligned, down}, {right, a.y},
          {left, a.y}, {right, up}, {left, up},         {right, down},        {left, down}};
}

std::optional<cv::Rect> findPlace(int rings, const cv::Size& label, const cv::Rect& anchor,
                                  const std::vector<cv::Rect>& taken, const std::vector<cv::Rect>& avoid,
                                  const cv::Size& picture) {
  for (int ring = 0; ring < rings; ++ring) {
    for (const cv::Point& at : placesAt(ring, label, anchor)) {
      const cv::Rect place = inside({at, label}, picture);
      if (!coversAny(place, taken) && !coversAny(place, avoid)) return place;
    }
  }
  return std::nullopt;
}

/// The free place of a grid over the whole picture that is nearest.
std::optional<cv::Rect> nearestFree(const cv::Size& label, const cv::Point& wanted, const std::vector<cv::Rect>& taken,
                                    const cv::Size& picture) {
  std::optional<cv::Rect> best;
  double nearest = 0;
  for (int y = 0; y + label.height <= picture.height; y += std::max(1, label.height / 2)) {
    for (int x = 0; x + label.width <= picture.width; x += std::max(1, label.height / 2)) {
      const cv::Rect place({x, y}, label);
      const double distance = cv::norm(cv::Point2d(place.tl()) - cv::Point2d(wanted));
      if ((best && distance >= nearest) || coversAny(place, taken)) continue;
      best = place;
      nearest = distance;
    }
  }
  return best;
}

}  // namespace

cv::Rect placeLabel(const cv::Size& label, const cv::Rect& anchor, const std::vector<cv::Rect>& taken,
                    const std::vector<cv::Rect>& avoid, const cv::Size& picture) {
  constexpr int kNear = 3;
  constexpr int kFar = 12;
  // Coordinates of boxes far outside must not overflow.
  const cv::Rect a = inside({std::clamp(anchor.x, -100000, 100000), std::clamp(anchor.y, -100000, 100000),
                             std::clamp(anchor.width, 1, std::max(1, picture.width)),
                             std::clamp(anchor.height, 1, std::max(1, picture.height))},
                            picture);
  if (const auto place = findPlace(kNear, label, a, taken, avoid, picture)) return *place;
  if (const auto place = findPlace(kFar, label, a, taken, {}, picture)) return *place;
  const cv::Point above(a.x, a.y - label.height);
  return nearestFree(label, above, taken, picture).value_or(inside({above, label}, picture));
}

}  // namespace host
