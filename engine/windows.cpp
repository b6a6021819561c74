#include "windows.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace csrt_engine {
namespace {

using Profile = std::vector<float>;

std::size_t index(int i) { return static_cast<std::size_t>(i); }

cv::Mat product(const Profile& down, const Profile& across) {
  cv::Mat plane(static_cast<int>(down.size()), static_cast<int>(across.size()), CV_32FC1);
  for (int y = 0; y < plane.rows; ++y)
    for (int x = 0; x < plane.cols; ++x) plane.at<float>(y, x) = down[index(y)] * across[index(x)];
  return plane;
}

Profile hann(int n) {
  Profile out(index(n), 1.f);
  if (n > 1)
    for (int i = 0; i < n; ++i) out[index(i)] = static_cast<float>(0.5 * (1.0 - std::cos(2 * CV_PI * i / (n - 1))));
  return out;
}

/// Modified Bessel function of the first kind and order 0, by its power series.
double bessel(double x) {
  double result = 0, term = 1;
  for (double m = 1; term > 1e-13 * result; ++m) {
    result += term;
    term *= (x * x) / (4 * m * m);
  }
  return result;
}

Profile kaiser(int n, float alpha) {
  Profile out(index(n));
  const double shape = alpha, unit = 1.0 / bessel(shape);
  for (int i = 0; i < n; ++i) {
    const double k = 2.0 * i / (n - 1) - 1.0;
    out[index(i)] = static_cast<float>(bessel(shape * std::sqrt(1.0 - k * k)) * unit);
  }
  return out;
}

float chebyshevPolynomial(int n, float x) {
  const float order = static_cast<float>(n);
  return std::fabs(x) <= 1 ? std::cos(order * std::acos(x)) : std::cosh(order * std::acosh(x));
}

Profile chebyshev(int n, float attenuation) {
  Profile out(index(n));
  const float ripple = static_cast<float>(std::pow(10, attenuation / 20.0f));
  const float x0 = std::cosh((1.0f / static_cast<float>(n - 1)) * std::acosh(ripple));
  const float middle = static_cast<float>(n - 1) / 2.0f + (n % 2 == 0 ? 0.5f : 0.f);
  Profile polynomial;  // the same for every element of the window
  for (int i = 1; static_cast<float>(i) <= middle; ++i)
    polynomial.push_back(chebyshevPolynomial(n - 1, x0 * static_cast<float>(std::cos(CV_PI * i / n))));
  float most = 0;
  for (int k = 0; k < n / 2 + 1 && k < n; ++k) {
    const float distance = static_cast<float>(k) - middle;
    float sum = 0;
    for (int i = 1; static_cast<float>(i) <= middle; ++i)
      sum += polynomial[index(i - 1)] * static_cast<float>(std::cos(2.0f * distance * CV_PI * i / n));
    out[index(k)] = out[index(n - k - 1)] = ripple + 2 * sum;
    most = std::max(most, out[index(k)]);
  }
  for (float& v : out) v /= most;
  return out;
}

}  // namespace

cv::Mat hannWindow(cv::Size size) { return product(hann(size.height), hann(size.width)); }

cv::Mat kaiserWindow(cv::Size size, float alpha) { return product(kaiser(size.height, alpha), kaiser(size.width, alpha)); }

cv::Mat chebyshevWindow(cv::Size size, float attenuation) {
  return product(chebyshev(size.height, attenuation), chebyshev(size.width, attenuation));
}

cv::Mat gaussianLabels(float sigma, cv::Size size) {
  const double factor = -0.5 / std::pow(sigma, 2);
  const auto profile = [&](int n) {  // by wrapped distance from the first element
    std::vector<double> out(index(n));
    for (int i = 0; i < n; ++i) {
      const int distance = i <= (n - 1) - n / 2 ? i : i - n;
      out[index(i)] = std::exp(factor * distance * distance);
    }
    return out;
  };
  const std::vector<double> across = profile(size.width), down = profile(size.height);
  cv::Mat plane(size, CV_32FC1), spectrum;
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) plane.at<float>(y, x) = static_cast<float>(across[index(x)] * down[index(y)]);
  cv::dft(plane, spectrum, cv::DFT_COMPLEX_OUTPUT);
  return spectrum;
}

}  // namespace csrt_engine
