// Scenes drawn from a fixed seed with nothing but filled rectangles: the same pixels on every processor and with every
// version of OpenCV, so that answers on them can be compared between platforms.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

namespace drawn {

/// A picture of random colours in square cells.
/// @param cell    side of a cell, pixels
/// @param levels  every channel lies in it, end excluded
inline cv::Mat colourCells(const cv::Size& size, int cell, const cv::Range& levels, cv::RNG& random) {
  const auto level = [&] { return random.uniform(levels.start, levels.end); };
  cv::Mat picture(size, CV_8UC3);
  for (int y = 0; y < size.height; y += cell) {
    for (int x = 0; x < size.width; x += cell) {
      const int blue = level();
      const int green = level();
      const cv::Scalar colour(blue, green, level());
      cv::rectangle(picture, cv::Rect(x, y, cell, cell), colour, cv::FILLED);
    }
  }
  return picture;
}

/// What happens to the target on its way.
struct Event {
  int first = 0;          ///< First frame it holds for; none when it is not below `end`.
  int end = 0;            ///< First frame it no longer holds for.
  bool blackout = false;  ///< The whole picture is black, instead of the target alone being gone.
  cv::Point shift;        ///< Where the target shows up again, from where it would have been, pixels.
};

struct Scene {
  std::string name;
  int frames = 0;
  Event event;
};

inline std::vector<Scene> scenes() {
  return {{"in_sight", 40, {}},
          {"hidden_and_back_elsewhere", 60, {20, 35, false, {60, 30}}},
          {"hidden_and_back", 60, {20, 35, false, {0, 0}}},
          {"blackout", 50, {20, 28, true, {0, 0}}}};
}

/// Draws the frames of a scene: a target of coloured cells that moves over a background of larger ones.
class SceneDrawer {
 public:
  explicit SceneDrawer(Scene scene, std::uint64_t seed = 20240611)
      : scene_(std::move(scene)),
        random_(seed),
        background_(colourCells({480, 360}, 12, {70, 170}, random_)),  // calmer than the target
        target_(colourCells({48, 40}, 8, {0, 256}, random_)) {}

  /// Where the target is drawn on frame `index`, whether shown or not.
  cv::Rect truth(int index) const {
    const bool moved = scene_.event.first < scene_.event.end && index >= scene_.event.end;
    const cv::Point start(120, 110);
    return {start + cv::Point(3 * index, index / 2) + (moved ? scene_.event.shift : cv::Point()), target_.size()};
  }

  bool shown(int index) const { return index < scene_.event.first || index >= scene_.event.end; }

  cv::Mat frame(int index) const {
    if (!shown(index) && scene_.event.blackout) return cv::Mat::zeros(background_.size(), CV_8UC3);
    cv::Mat picture = background_.clone();
    if (shown(index)) target_.copyTo(picture(truth(index)));
    return picture;
  }

 private:
  Scene scene_;
  cv::RNG random_;
  cv::Mat background_;
  cv::Mat target_;
};

}  // namespace drawn
