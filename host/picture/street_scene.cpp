#include "picture/street_scene.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "base/interrupt.h"
#include "picture/picture_output.h"

namespace host {
namespace {

/// Smooth patches of colour with fine grain: something for a tracker to hold on to.
cv::Mat texture(cv::Size size, const cv::Scalar& mean, double contrast, cv::RNG& rng) {
  cv::Mat coarse(std::max(2, size.height / 12), std::max(2, size.width / 12), CV_8UC3);
  rng.fill(coarse, cv::RNG::NORMAL, mean, cv::Scalar::all(contrast));
  cv::Mat picture;
  cv::resize(coarse, picture, size, 0, 0, cv::INTER_CUBIC);
  cv::Mat grain(size, CV_8SC3);
  rng.fill(grain, cv::RNG::NORMAL, cv::Scalar::all(0), cv::Scalar::all(6));
  cv::add(picture, grain, picture, cv::noArray(), CV_8U);
  return picture;
}

cv::Mat drawFigure(cv::Size size, cv::RNG& rng) {
  cv::Mat figure = texture(size, cv::Scalar(60, 50, 60), 30, rng);
  const int third = size.height / 3;
  cv::rectangle(figure, cv::Rect(0, 0, size.width, third / 2), cv::Scalar(150, 180, 220), cv::FILLED);
  cv::rectangle(figure, cv::Rect(0, third / 2, size.width, third), cv::Scalar(40, 40, 190), cv::FILLED);
  cv::line(figure, {size.width / 2, third / 2}, {size.width / 2, size.height}, cv::Scalar(200, 200, 90), 2);
  return figure;
}

}  // namespace

StreetScene::StreetScene(cv::Size size, std::uint64_t seed, int sign) : sign_(sign) {
  cv::RNG rng(seed);
  background_ = texture(size, cv::Scalar(105, 120, 115), 18, rng);
  const cv::Rect road(0, size.height / 2, size.width, size.height / 4);
  texture(road.size(), cv::Scalar(140, 140, 140), 8, rng).copyTo(background_(road));
  figure_ = drawFigure({size.width / 20, size.height / 6}, rng);
}

cv::Rect StreetScene::truth(int i) const {
  const int reach = std::max(1, background_.cols - figure_.cols - 20);
  const int way = (background_.cols / 6 + 2 * i) % (2 * reach);  // there and back again
  const int x = 10 + (way < reach ? way : 2 * reach - way);
  const int y = background_.rows / 2 - figure_.rows / 4 + static_cast<int>(std::lround(4 * std::sin(i * 0.15)));
  return {x, y, figure_.cols, figure_.rows};
}

cv::Rect StreetScene::cover() const {
  const int width = sign_ > 0 ? sign_ : std::max(3, background_.cols / 90);
  return {background_.cols / 2, background_.rows / 8, width, background_.rows * 5 / 8};
}

cv::Mat StreetScene::frame(int i) const {
  cv::Mat picture = background_.clone();
  figure_.copyTo(picture(truth(i)));
  cv::rectangle(picture, cover(), cv::Scalar(70, 75, 80), cv::FILLED);
  return picture;
}

void writeStreetScene(const std::string& path, cv::Size size, int frames, double fps, int sign) {
  checkVideoName(path, "the video");
  PendingFile file(path, "the video");
  const StreetScene scene(size, kStreetSceneSeed, sign);
  VideoOutput video(file, size, fps);
  for (int i = 0; i < frames && interruptSignal() == 0; ++i) video.write(scene.frame(i));
  video.close();
}

}  // namespace host
