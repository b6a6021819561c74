#include "color_model.h"

#include <algorithm>
#include <cmath>

#include "hsv.h"

namespace csrt_engine {
namespace {

std::size_t index(int i) { return static_cast<std::size_t>(i); }

/// Peak 1 - x of a paraboloid, cut off at 0; x: squared distance.
double epanechnikov(double x, double height) { return x <= 1 ? height * (1 - x) : 0; }

double square(double x) { return x * x; }

Bgr imagePixel(const cv::Mat& image, int x, int y) {
  if (image.channels() == 1) {
    const uint8_t v = image.ptr<uint8_t>(y)[x];
    return {v, v, v};
  }
  const uint8_t* p = image.ptr<uint8_t>(y) + 3 * static_cast<std::ptrdiff_t>(x);
  return {p[0], p[1], p[2]};
}

void scale(std::vector<double>& values, double factor) {
  for (double& v : values) v *= factor;
}

}  // namespace

std::size_t ColorModel::binOf(int h, int s, int v) const {
  const std::size_t bins = index(bins_);
  return (level_[index(h)] * bins + level_[index(s)]) * bins + level_[index(v)];
}

void ColorModel::init(const cv::Mat& image, const cv::Rect& region, const cv::tracking::TrackerCSRT::Params& params) {
  bins_ = params.histogram_bins;
  backgroundRatio_ = params.background_ratio;
  rate_ = params.histogram_lr;
  level_.resize(256);
  for (int i = 0; i < 256; ++i) level_[index(i)] = index(cvFloor(static_cast<double>(bins_) / 256.0 * i));
  const std::size_t size = index(bins_) * index(bins_) * index(bins_);
  newForeground_.resize(size);
  newBackground_.resize(size);
  extract(image, region);
  foreground_ = newForeground_;
  background_ = newBackground_;
}

void ColorModel::extract(const cv::Mat& image, const cv::Rect& region) {
  const int x1 = std::min(std::max(0, region.x), image.cols - 1), y1 = std::min(std::max(0, region.y), image.rows - 1);
  const int x2 = std::min(std::max(0, region.x + region.width), image.cols - 1);
  const int y2 = std::min(std::max(0, region.y + region.height), image.rows - 1);
  const int offsetX = (x2 - x1 + 1) / backgroundRatio_, offsetY = (y2 - y1 + 1) / backgroundRatio_;
  const int outerY1 = std::max(0, y1 - offsetY), outerY2 = std::min(image.rows, y2 + offsetY + 1);
  const int outerX1 = std::max(0, x1 - offsetX), outerX2 = std::min(image.cols, x2 + offsetX + 1);
  backgroundShare_ = 1.0 - ((x2 - x1 + 1) * (y2 - y1 + 1)) /
                               (static_cast<double>(outerX2 - outerX1 + 1) * (outerY2 - outerY1 + 1));
  const double cx = x1 + (x2 - x1) / 2., cy = y1 + (y2 - y1) / 2.;
  const double kernelX = 1.0 / (0.5 * (x2 - x1) * 1.4142 + 1), kernelY = 1.0 / (0.5 * (y2 - y1) * 1.4142 + 1);
  std::fill(newForeground_.begin(), newForeground_.end(), 0.0);
  std::fill(newBackground_.begin(), newBackground_.end(), 0.0);
  double frontSum = 0, backSum = 0;
  const auto binAt = [&](int x, int y) {
    const Hsv hsv = hsvOf(imagePixel(image, x, y));
    return binOf(hsv.h, hsv.s, hsv.v);
  };
  for (int y = y1; y <= y2; ++y)
    for (int x = x1; x <= x2; ++x) {
      const double weight = epanechnikov(square((cx - x) * kernelX) + square((cy - y) * kernelY), 2.0 / CV_PI);
      newForeground_[binAt(x, y)] += weight;
      frontSum += weight;
    }
  for (int y = outerY1; y < outerY2; ++y)
    for (int x = outerX1; x < outerX2; ++x) {
      if (x >= x1 && x <= x2 && y >= y1 && y <= y2) continue;
      newBackground_[binAt(x, y)] += 1.0;
      backSum += 1.0;
    }
  scale(newForeground_, 1. / frontSum);
  scale(newBackground_, 1. / backSum);
}

void ColorModel::learn(const cv::Mat& image, const cv::Rect& region) {
  extract(image, region);
  const float keep = 1 - rate_;
  for (std::size_t i = 0; i < foreground_.size(); ++i) {
    foreground_[i] = keep * foreground_[i] + rate_ * newForeground_[i];
    background_[i] = keep * background_[i] + rate_ * newBackground_[i];
  }
}

/// The bin of pixel (x, y) of the small picture: hue, saturation and value resized linearly, each by itself.
std::size_t ColorModel::binAt(const Subwindow& window, int x, int y) const {
  const LinearTap &tx = shrinkX_[index(x)], &ty = shrinkY_[index(y)];
  const Hsv a = hsvOf(pixelAt(window, tx.first, ty.first)), b = hsvOf(pixelAt(window, tx.second, ty.first));
  const Hsv c = hsvOf(pixelAt(window, tx.first, ty.second)), d = hsvOf(pixelAt(window, tx.second, ty.second));
  if (window.width == 2 * small_.width && window.height == 2 * small_.height)  // an exact half takes the mean
    return binOf((a.h + b.h + c.h + d.h + 2) >> 2, (a.s + b.s + c.s + d.s + 2) >> 2, (a.v + b.v + c.v + d.v + 2) >> 2);
  const int x0 = cv::saturate_cast<short>(tx.weightFirst * 2048), x1 = cv::saturate_cast<short>(tx.weightSecond * 2048);
  const int y0 = cv::saturate_cast<short>(ty.weightFirst * 2048), y1 = cv::saturate_cast<short>(ty.weightSecond * 2048);
  const auto mix = [&](int pa, int pb, int pc, int pd) {
    const int upper = (pa * x0 + pb * x1) >> 4, lower = (pc * x0 + pd * x1) >> 4;
    return (((upper * y0) >> 16) + ((lower * y1) >> 16) + 2) >> 2;
  };
  return binOf(mix(a.h, b.h, c.h, d.h), mix(a.s, b.s, c.s, d.s), mix(a.v, b.v, c.v, d.v));
}

/// Where in the window the target is to be expected: a paraboloid between 0.5 and 0.9 around the middle.
void ColorModel::priors(const Subwindow& window, const cv::Size2f& target) {
  const int x2 = window.width - 1, y2 = window.height - 1;
  const int side = cvFloor(std::min(target.width, target.height));
  const double cx = x2 / 2., cy = y2 / 2.;
  const double kernel = 1.0 / (0.5 * static_cast<double>(side) * 1.4142 + 1);
  const auto raw = [&](int x, int y) {
    return epanechnikov(square((cx - x) * kernel) + square((cy - y) * kernel), 2.0 / 3.14);
  };
  const double unit = 1.0 / raw(x2 / 2, y2 / 2);
  const auto prior = [&](int x, int y) { return std::clamp(raw(x, y) * unit, 0.5, 0.9); };
  std::size_t i = 0;
  for (int y = 0; y < small_.height; ++y)
    for (int x = 0; x < small_.width; ++x, ++i) {
      const LinearTap &tx = shrinkX_[index(x)], &ty = shrinkY_[index(y)];
      const double a = prior(tx.first, ty.first), b = prior(tx.second, ty.first);
      const double c = prior(tx.first, ty.second), d = prior(tx.second, ty.second);
      const auto mix = [&](double pa, double pb, double pc, double pd) {
        return (pa * tx.weightFirst + pb * tx.weightSecond) * ty.weightFirst +
               (pc * tx.weightFirst + pd * tx.weightSecond) * ty.weightSecond;
      };
      smoothing_.priorFront[i] = mix(a, b, c, d);
      smoothing_.priorBack[i] = mix(1.0 - a, 1.0 - b, 1.0 - c, 1.0 - d);
    }
}

/// A colour that neither histogram knows makes 0 / 0. In the library that value spreads over the whole small picture
/// while it is smoothed, and the mask ends up empty: so this says false at the first one.
bool ColorModel::posteriors(const Subwindow& window, const cv::Size2f& target) {
  const double factor = std::min(1.0, std::sqrt(1000.0 / (window.width * window.height)));
  small_ = {cvFloor(window.width * factor), cvFloor(window.height * factor)};
  linearTapsAlongRow(window.width, small_.width, shrinkX_);
  linearTapsAlongColumn(window.height, small_.height, shrinkY_);
  smoothing_.resize(small_);
  priors(window, target);
  const double share = 1. - backgroundShare_;
  std::size_t i = 0;
  for (int y = 0; y < small_.height; ++y)
    for (int x = 0; x < small_.width; ++x, ++i) {
      const std::size_t bin = binAt(window, x, y);
      const double front = share * (foreground_[bin] * smoothing_.priorFront[i]);
      const double probability = front / (front + backgroundShare_ * (background_[bin] * smoothing_.priorBack[i]));
      if (std::isnan(probability)) return false;
      smoothing_.front[i] = probability;
      smoothing_.back[i] = 1.0 - probability;
    }
  return true;
}

/// The smoothed probability at pixel (x, y) of the window.
double ColorModel::at(int x, int y) const {
  const LinearTap &tx = growX_[index(x)], &ty = growY_[index(y)];
  const double* upper = &smoothing_.result[index(ty.first * small_.width)];
  const double* lower = &smoothing_.result[index(ty.second * small_.width)];
  return (upper[tx.first] * tx.weightFirst + upper[tx.second] * tx.weightSecond) * ty.weightFirst +
         (lower[tx.first] * tx.weightFirst + lower[tx.second] * tx.weightSecond) * ty.weightSecond;
}

double ColorModel::largestIn(const Subwindow& window) const {
  double most = 0;
  for (int y = window.valid.y; y < window.valid.br().y; ++y)
    for (int x = window.valid.x; x < window.valid.br().x; ++x) most = std::max(most, at(x, y));
  return most;
}

void ColorModel::segment(const cv::Mat& image, const Window& place, cv::Size size, cv::Mat& mask) {
  const Subwindow window = subwindowAround(image, place.center, place.width, place.height);
  mask.create(size, CV_32FC1);
  mask.setTo(0);
  if (!posteriors(window, place.target)) return;
  smoothing_.run();
  linearTapsAlongRow(small_.width, window.width, growX_);
  linearTapsAlongColumn(small_.height, window.height, growY_);
  const double threshold = largestIn(window) / 2.0;
  const double stepX = 1. / (static_cast<double>(size.width) / window.width);
  const double stepY = 1. / (static_cast<double>(size.height) / window.height);
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const cv::Point from(std::min(cvFloor(x * stepX), window.width - 1), std::min(cvFloor(y * stepY), window.height - 1));
      if (window.valid.contains(from) && at(from.x, from.y) > threshold) mask.at<float>(y, x) = 1.f;
    }
}

}  // namespace csrt_engine
