#include "smoothing.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace csrt_engine {
namespace {

std::size_t index(int i) { return static_cast<std::size_t>(i); }

/// Position i of n mirrored at the borders, the border's element twice: cba|abc|cba.
int mirrored(int i, int n) {
  while (i < 0 || i >= n) i = i < 0 ? -1 - i : 2 * n - 1 - i;
  return i;
}

/// Multiplies a and b with (front, back) and scales each pair to a sum of 1.
void multiplyAndNormalise(std::vector<double>& a, std::vector<double>& b, const std::vector<double>& front,
                          const std::vector<double>& back) {
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double fa = a[i] * front[i], fb = b[i] * back[i], norm = 1.0 / (fa + fb);
    a[i] = fa * norm;
    b[i] = fb * norm;
  }
}

}  // namespace

void Smoothing::resize(cv::Size size) {
  const auto n = static_cast<std::size_t>(size.area());
  for (std::vector<double>* v :
       {&priorFront, &priorBack, &front, &back, &result, &pFront_, &pBack_, &a_, &b_, &sumA_, &sumB_, &resultBack_})
    v->resize(n);
  if (size == size_) return;
  size_ = size;
  radius_ = std::max(1, cvFloor(static_cast<double>(size.width) * 3. / 50. + 0.5));
  const int side = 2 * radius_ + 1;
  kernel_.assign(index(side * side), 0.0);
  const double variance = std::pow(radius_ / 3.0, 2);
  double sum = 0;
  for (int y = -radius_; y <= radius_; ++y)
    for (int x = -radius_; x <= radius_; ++x) {
      const double value = std::exp(-(x * x + y * y) / (2 * variance)) / (2 * CV_PI * variance);
      kernel_[index((y + radius_) * side + x + radius_)] = value;
      sum += value;
    }
  double& centre = kernel_[kernel_.size() / 2];
  sum -= centre;
  centre = 0;
  for (double& k : kernel_) k *= 1.0 / sum;
  padded_.resize(index(size.width + 2 * radius_) * index(size.height + 2 * radius_));
}

/// `centre`: the kernel's middle, 0 or 1.
void Smoothing::filter(const std::vector<double>& in, std::vector<double>& out, double centre) {
  const int width = size_.width, height = size_.height, stride = width + 2 * radius_, side = 2 * radius_ + 1;
  for (int y = -radius_; y < height + radius_; ++y)
    for (int x = -radius_; x < width + radius_; ++x)
      padded_[index((y + radius_) * stride + x + radius_)] = in[index(mirrored(y, height) * width + mirrored(x, width))];
  for (int y = 0; y < height; ++y) {
    double* row = &out[index(y * width)];
    std::fill_n(row, width, 0.0);
    for (int k = 0; k < side * side; ++k) {
      const double weight = k == side * side / 2 ? centre : kernel_[index(k)];
      if (weight == 0) continue;
      const double* from = &padded_[index((y + k / side) * stride + k % side)];
      for (int x = 0; x < width; ++x) row[x] += weight * from[x];
    }
  }
}

void Smoothing::run() {
  constexpr int kMostRounds = 50;
  constexpr double kEnough = 0.1;
  double likelihood = std::numeric_limits<double>::max();
  const std::size_t n = front.size();
  for (int round = 0; round < kMostRounds; ++round) {
    for (std::size_t i = 0; i < n; ++i) {
      pFront_[i] = priorFront[i] * front[i] + std::numeric_limits<double>::epsilon();
      pBack_[i] = priorBack[i] * back[i] + std::numeric_limits<double>::epsilon();
    }
    filter(priorFront, a_, 0);
    filter(priorBack, b_, 0);
    multiplyAndNormalise(a_, b_, priorFront, priorBack);
    filter(a_, sumA_, 1);
    filter(b_, sumB_, 1);
    filter(pFront_, a_, 0);
    filter(pBack_, b_, 0);
    multiplyAndNormalise(a_, b_, pFront_, pBack_);
    filter(a_, result, 1);
    filter(b_, resultBack_, 1);
    double logs = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const double f = (result[i] + sumA_[i]) * 0.25, g = (resultBack_[i] + sumB_[i]) * 0.25, norm = 1.0 / (f + g);
      priorFront[i] = f * norm;
      priorBack[i] = g * norm;
      logs += std::log(result[i]) + std::log(resultBack_[i]);
    }
    const double now = -logs / (2 * static_cast<double>(n));
    if (std::abs(likelihood - now) < kEnough) return;
    likelihood = now;
  }
}

}  // namespace csrt_engine
