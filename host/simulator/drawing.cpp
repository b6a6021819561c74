#include "simulator/drawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace host::sim {
namespace {

constexpr int kSpriteSide = 160;  // the longer side
constexpr int kStoreMargin = 64;
constexpr int kStroke = 4;

const std::array<cv::Scalar, 6> kPaints = {cv::Scalar(40, 40, 200),  cv::Scalar(190, 120, 30),
                                           cv::Scalar(50, 170, 220), cv::Scalar(200, 200, 200),
                                           cv::Scalar(60, 60, 60),   cv::Scalar(150, 60, 150)};

cv::Rect part(cv::Size whole, double x, double y, double w, double h) {
  return {cvRound(x * whole.width), cvRound(y * whole.height), std::max(1, cvRound(w * whole.width)),
          std::max(1, cvRound(h * whole.height))};
}

void fill(Sprite& sprite, const cv::Rect& where, const cv::Scalar& colour) {
  cv::rectangle(sprite.bgr, where, colour, cv::FILLED);
  cv::rectangle(sprite.mask, where, cv::Scalar::all(255), cv::FILLED);
}

void disc(Sprite& sprite, cv::Point centre, int radius, const cv::Scalar& colour) {
  cv::circle(sprite.bgr, centre, radius, colour, cv::FILLED, cv::LINE_AA);
  cv::circle(sprite.mask, centre, radius, cv::Scalar::all(255), cv::FILLED, cv::LINE_AA);
}

void drawCar(Sprite& car, const cv::Scalar& paint) {
  const cv::Size s = car.bgr.size();
  fill(car, part(s, 0.0, 0.4, 1.0, 0.42), paint);
  fill(car, part(s, 0.2, 0.0, 0.55, 0.42), paint * 0.8);
  fill(car, part(s, 0.25, 0.08, 0.2, 0.28), cv::Scalar(225, 205, 180));
  fill(car, part(s, 0.5, 0.08, 0.2, 0.28), cv::Scalar(225, 205, 180));
  fill(car, part(s, 0.0, 0.55, 1.0, 0.08), cv::Scalar(235, 235, 235));
  fill(car, part(s, 0.93, 0.44, 0.07, 0.1), cv::Scalar(120, 240, 255));
  for (const double x : {0.22, 0.78}) {
    const cv::Point hub(cvRound(x * s.width), cvRound(0.82 * s.height));
    disc(car, hub, cvRound(0.18 * s.height), cv::Scalar(20, 20, 20));
    disc(car, hub, cvRound(0.08 * s.height), cv::Scalar(170, 170, 170));
  }
}

void drawPerson(Sprite& person, const cv::Scalar& paint) {
  const cv::Size s = person.bgr.size();
  fill(person, part(s, 0.1, 0.2, 0.8, 0.4), paint);
  fill(person, part(s, 0.2, 0.58, 0.26, 0.42), cv::Scalar(90, 60, 40));
  fill(person, part(s, 0.54, 0.58, 0.26, 0.42), cv::Scalar(90, 60, 40));
  fill(person, part(s, 0.1, 0.34, 0.8, 0.06), cv::Scalar(230, 230, 230));
  disc(person, {s.width / 2, cvRound(0.1 * s.height)}, cvRound(0.1 * s.height), cv::Scalar(140, 170, 215));
}

void drawDrone(Sprite& drone, const cv::Scalar& paint) {
  const cv::Size s = drone.bgr.size();
  fill(drone, part(s, 0.0, 0.2, 1.0, 0.14), cv::Scalar(40, 40, 40));
  fill(drone, part(s, 0.3, 0.25, 0.4, 0.55), paint);
  fill(drone, part(s, 0.0, 0.0, 0.3, 0.12), cv::Scalar(30, 30, 30));
  fill(drone, part(s, 0.7, 0.0, 0.3, 0.12), cv::Scalar(30, 30, 30));
  disc(drone, {s.width / 2, cvRound(0.75 * s.height)}, cvRound(0.14 * s.height), cv::Scalar(240, 240, 240));
}

void drawWall(Sprite& wall, cv::RNG& rng) {
  wall.mask.setTo(255);
  texture(wall.bgr.size(), cv::Scalar(95, 105, 130), 12, 8, rng).copyTo(wall.bgr);
  for (int y = 0; y < wall.bgr.rows; y += 16) cv::line(wall.bgr, {0, y}, {wall.bgr.cols, y}, cv::Scalar(70, 75, 90), 1);
}

void blend(cv::Mat& picture, const cv::Mat& bgr, const cv::Mat& mask) {
  for (int y = 0; y < picture.rows; ++y) {
    auto* to = picture.ptr<cv::Vec3b>(y);
    const auto* from = bgr.ptr<cv::Vec3b>(y);
    const auto* share = mask.ptr<uchar>(y);
    for (int x = 0; x < picture.cols; ++x) {
      for (int c = 0; c < 3; ++c) {
        to[x][c] = static_cast<uchar>((from[x][c] * share[x] + to[x][c] * (255 - share[x]) + 127) / 255);
      }
    }
  }
}

}  // namespace

cv::Mat texture(cv::Size size, const cv::Scalar& mean, double contrast, int patch, cv::RNG& rng) {
  const int side = std::max(1, patch);
  const cv::Size coarseSize(std::max(2, size.width / side), std::max(2, size.height / side));
  cv::Mat light(coarseSize, CV_16SC1);  // light and shade are the same in all colours
  rng.fill(light, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(contrast));
  cv::Mat coarse(coarseSize, CV_16SC3);
  rng.fill(coarse, cv::RNG::NORMAL, mean, cv::Scalar::all(0.2 * contrast));
  cv::Mat shades;
  cv::merge(std::vector<cv::Mat>(3, light), shades);
  coarse += shades;
  cv::Mat smooth;
  cv::resize(coarse, smooth, size, 0, 0, cv::INTER_CUBIC);
  cv::Mat grain(size, CV_16SC3);
  rng.fill(grain, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(6));
  cv::Mat picture;
  cv::add(smooth, grain, picture, cv::noArray(), CV_8U);
  return picture;
}

Sprite makeSprite(const std::string& look, double aspect, int number, std::uint64_t seed) {
  cv::RNG rng(seed * 104729 + static_cast<std::uint64_t>(number) + 1);
  const cv::Size size(std::max(kStroke, aspect >= 1 ? kSpriteSide : cvRound(kSpriteSide * aspect)),
                      std::max(kStroke, aspect >= 1 ? cvRound(kSpriteSide / aspect) : kSpriteSide));
  Sprite sprite{cv::Mat(size, CV_8UC3, cv::Scalar::all(128)), cv::Mat::zeros(size, CV_8U)};
  const cv::Scalar& paint = kPaints[static_cast<std::size_t>(number) % kPaints.size()];
  if (look == "person") {
    drawPerson(sprite, paint);
  } else if (look == "drone") {
    drawDrone(sprite, paint);
  } else if (look == "wall") {
    drawWall(sprite, rng);
  } else {
    drawCar(sprite, paint);
  }
  return sprite;
}

void paint(cv::Mat& picture, const Sprite& sprite, const cv::Rect2d& box) {
  const cv::Rect2d seen = box & cv::Rect2d(0, 0, picture.cols, picture.rows);
  if (seen.width <= 0 || seen.height <= 0) return;
  const cv::Rect area = cv::Rect(cv::Point(cvFloor(seen.x), cvFloor(seen.y)),
                                 cv::Point(cvCeil(seen.x + seen.width), cvCeil(seen.y + seen.height))) &
                        cv::Rect(0, 0, picture.cols, picture.rows);
  // First to about the right size with every pixel counted, then to its exact place between the pixels.
  const cv::Size near(std::clamp(cvCeil(box.width), 1, sprite.bgr.cols),
                      std::clamp(cvCeil(box.height), 1, sprite.bgr.rows));
  cv::Mat bgr;
  cv::Mat mask;
  cv::resize(sprite.bgr, bgr, near, 0, 0, cv::INTER_AREA);
  cv::resize(sprite.mask, mask, near, 0, 0, cv::INTER_AREA);
  const double stepX = near.width / box.width;
  const double stepY = near.height / box.height;
  const cv::Matx23d toSprite(stepX, 0, (area.x + 0.5 - box.x) * stepX - 0.5, 0, stepY,
                             (area.y + 0.5 - box.y) * stepY - 0.5);
  constexpr int kHow = cv::INTER_LINEAR | cv::WARP_INVERSE_MAP;
  cv::Mat placed;
  cv::Mat placedMask;
  cv::warpAffine(bgr, placed, toSprite, area.size(), kHow, cv::BORDER_REPLICATE);
  cv::warpAffine(mask, placedMask, toSprite, area.size(), kHow, cv::BORDER_CONSTANT);
  cv::Mat target = picture(area);
  blend(target, placed, placedMask);
}

SensorNoise::SensorNoise(cv::Size frame, double deviation, std::uint64_t seed) : rng_(seed * 31 + 5), frame_(frame) {
  if (deviation <= 0) return;
  store_.create(frame.height + kStoreMargin, frame.width + kStoreMargin, CV_16SC3);
  rng_.fill(store_, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(deviation));
}

void SensorNoise::add(cv::Mat& picture) {
  if (store_.empty()) return;
  const cv::Rect now(cv::Point(rng_.uniform(0, kStoreMargin), rng_.uniform(0, kStoreMargin)), frame_);
  cv::add(picture, store_(now), picture, cv::noArray(), CV_8U);
}

}  // namespace host::sim
