#include "simulator/angles.h"

#include <cmath>

namespace host::sim {

double wrapped(double degrees) {
  double turn = std::fmod(degrees + 180.0, 360.0);
  if (turn < 0) turn += 360.0;
  return turn - 180.0;
}

Angles between(const Angles& from, const Angles& to) {
  return {wrapped(to.pan - from.pan), to.tilt - from.tilt};
}

double vfovOf(double hfov, cv::Size frame) {
  return hfov * frame.height / frame.width;
}

cv::Point2d pixelOf(const Angles& direction, const View& view, cv::Size frame) {
  const Angles off = between(view.centre, direction);
  return {(0.5 + off.pan / view.hfov) * frame.width, (0.5 - off.tilt / view.vfov) * frame.height};
}

Angles directionOf(const cv::Point2d& pixel, const View& view, cv::Size frame) {
  return {view.centre.pan + (pixel.x / frame.width - 0.5) * view.hfov,
          view.centre.tilt - (pixel.y / frame.height - 0.5) * view.vfov};
}

cv::Rect2d boxOf(const Angles& direction, cv::Size2d size, const View& view, cv::Size frame) {
  const cv::Point2d centre = pixelOf(direction, view, frame);
  const double width = size.width / view.hfov * frame.width;
  const double height = size.height / view.vfov * frame.height;
  return {centre.x - 0.5 * width, centre.y - 0.5 * height, width, height};
}

double overlap(const cv::Rect2d& a, const cv::Rect2d& b) {
  const double common = (a & b).area();
  const double all = a.area() + b.area() - common;
  return all > 0 && common > 0 ? common / all : 0.0;
}

cv::Point2d centreOf(const cv::Rect2d& box) {
  return {box.x + 0.5 * box.width, box.y + 0.5 * box.height};
}

}  // namespace host::sim
