#include "simulator/panorama.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "base/host_error.h"
#include "simulator/drawing.h"

namespace host::sim {
namespace {

constexpr double kTurn = 360.0;
constexpr double kWidestView = 180.0;
constexpr double kMostPixelsPerDeg = 40.0;

void drawHouse(cv::Mat& picture, cv::RNG& rng, int ground, double scale) {
  const int width = rng.uniform(cvRound(2.5 * scale), cvRound(7 * scale));
  const int height = rng.uniform(cvRound(2 * scale), cvRound(9 * scale));
  const cv::Rect house =
      cv::Rect(rng.uniform(0, picture.cols - width), ground - height, width, height + cvRound(scale)) &
      cv::Rect(0, 0, picture.cols, picture.rows);
  if (house.empty()) return;
  const double grey = rng.uniform(70, 190);
  const cv::Scalar wall(grey + rng.uniform(-25, 15), grey + rng.uniform(-15, 15), grey + rng.uniform(-10, 30));
  texture(house.size(), wall, 6, 3, rng).copyTo(picture(house));
  const int step = std::max(4, cvRound(0.9 * scale));
  for (int y = house.y + step / 2; y + step / 2 < house.br().y - cvRound(scale); y += step) {
    for (int x = house.x + step / 2; x + step / 2 < house.br().x; x += step) {
      const double light = rng.uniform(20, 110);
      cv::rectangle(picture, cv::Rect(x, y, step / 2, step / 2), cv::Scalar(light + 20, light, light), cv::FILLED);
    }
  }
}

void drawTree(cv::Mat& picture, cv::RNG& rng, double horizon, double scale) {
  const cv::Point foot(rng.uniform(0, picture.cols), cvRound(horizon + rng.uniform(0.0, 14.0) * scale));
  const int radius = rng.uniform(cvRound(0.5 * scale), cvRound(1.6 * scale));
  cv::line(picture, foot, {foot.x, foot.y - 2 * radius}, cv::Scalar(40, 55, 75), std::max(1, radius / 4));
  for (int i = 0; i < 7; ++i) {
    const cv::Point leaf(foot.x + rng.uniform(-radius, radius + 1),
                         foot.y - 2 * radius + rng.uniform(-radius, radius + 1));
    const double green = rng.uniform(60, 125);
    cv::circle(picture, leaf, std::max(1, radius * 2 / 3), cv::Scalar(green * 0.45, green, green * 0.6), cv::FILLED,
               cv::LINE_AA);
  }
}

void drawSky(const cv::Mat& sky) {
  for (int y = 0; y < sky.rows; ++y) {
    const double low = static_cast<double>(y) / sky.rows;
    sky.row(y).setTo(cv::Scalar(215 - 10 * low, 165 + 40 * low, 120 + 75 * low));
  }
}

cv::Mat drawScene(const SceneParams& scene, std::uint64_t seed) {
  const double scale = scene.pixels_per_deg;
  cv::RNG rng(seed * 7919 + 17);
  const cv::Size size(cvRound(kTurn * scale), cvRound(scene.tilt_span_deg * scale));
  cv::Mat picture = texture(size, cv::Scalar(85, 120, 115), 22, cvRound(2.0 * scale), rng);
  const int horizon = cvRound(0.45 * size.height);
  drawSky(picture.rowRange(0, horizon));
  const cv::Rect road(0, horizon + cvRound(6 * scale), size.width, cvRound(4 * scale));
  const cv::Rect roadInside = road & cv::Rect(cv::Point(), size);
  if (!roadInside.empty()) texture(roadInside.size(), cv::Scalar(125, 125, 125), 7, 4, rng).copyTo(picture(roadInside));
  for (int i = 0; i < 90; ++i) drawHouse(picture, rng, horizon + cvRound(rng.uniform(0.0, 2.5) * scale), scale);
  for (int i = 0; i < 170; ++i) drawTree(picture, rng, horizon, scale);
  cv::Mat grain(size, CV_8SC3);
  rng.fill(grain, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(7));
  cv::add(picture, grain, picture, cv::noArray(), CV_8U);
  return picture;
}

cv::Mat loadScene(const std::string& path) {
  cv::Mat picture = cv::imread(path, cv::IMREAD_COLOR);
  if (picture.empty()) throw HostError(ExitCode::Usage, "cannot read the panorama '" + path + "' as a picture");
  const int widest = cvRound(kTurn * kMostPixelsPerDeg);
  const double ratio = static_cast<double>(picture.rows) / picture.cols;
  if (ratio > 0.5) throw HostError(ExitCode::Usage, "the panorama '" + path + "' is higher than half its width");
  const int width = std::clamp(picture.cols, 720, widest);
  if (width != picture.cols)
    cv::resize(picture, picture, {width, std::max(1, cvRound(ratio * width))}, 0, 0, cv::INTER_AREA);
  return picture;
}

}  // namespace

Panorama::Panorama(const SceneParams& scene, std::uint64_t seed) {
  const cv::Mat turn = scene.picture.empty() ? drawScene(scene, seed) : loadScene(scene.picture);
  pixelsPerDeg_ = turn.cols / kTurn;
  tiltSpan_ = turn.rows / pixelsPerDeg_;
  cv::hconcat(turn, turn.colRange(0, cvRound(kWidestView * pixelsPerDeg_)), turn_);
}

cv::Mat Panorama::see(const View& view, cv::Size frame) const {
  const double left = (wrapped(view.centre.pan - 0.5 * view.hfov) + 180.0) * pixelsPerDeg_;
  const double top = (0.5 * tiltSpan_ - view.centre.tilt - 0.5 * view.vfov) * pixelsPerDeg_;
  const double stepX = view.hfov * pixelsPerDeg_ / frame.width;
  const double stepY = view.vfov * pixelsPerDeg_ / frame.height;
  const cv::Matx23d toTurn(stepX, 0, left + 0.5 * stepX - 0.5, 0, stepY, top + 0.5 * stepY - 0.5);
  cv::Mat picture;
  cv::warpAffine(turn_, picture, toTurn, frame, cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
  return picture;
}

cv::Mat Panorama::overview(int width) const {
  const cv::Mat turn = turn_.colRange(0, cvRound(kTurn * pixelsPerDeg_));
  cv::Mat picture;
  cv::resize(turn, picture, {width, std::max(1, turn.rows * width / turn.cols)}, 0, 0, cv::INTER_AREA);
  return picture;
}

}  // namespace host::sim
