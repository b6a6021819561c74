// The filter of one block of channels compared with the same method written with cv::dft, round by round.
#include <gtest/gtest.h>

#include <complex>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "correlation_filter.h"
#include "windows.h"

namespace csrt_engine {
namespace {

using Complex = std::complex<double>;
using Plane = cv::Mat_<cv::Vec2d>;

Plane forward(const cv::Mat& real) {
  cv::Mat in, out;
  real.convertTo(in, CV_64F);
  cv::dft(in, out, cv::DFT_COMPLEX_OUTPUT);
  return out;
}

cv::Mat inverse(const Plane& spectrum) {
  cv::Mat out;
  cv::idft(spectrum, out, cv::DFT_SCALE | cv::DFT_REAL_OUTPUT);
  return out;
}

Plane each(const Plane& a, const Plane& b, const Plane& c, const std::function<Complex(Complex, Complex, Complex)>& f) {
  Plane out(a.size());
  for (int y = 0; y < a.rows; ++y)
    for (int x = 0; x < a.cols; ++x) {
      const auto at = [&](const Plane& p) { return Complex(p(y, x)[0], p(y, x)[1]); };
      const Complex r = f(at(a), at(b), at(c));
      out(y, x) = {r.real(), r.imag()};
    }
  return out;
}

/// The method as published, in doubles.
Plane filterOf(const cv::Mat& feature, const Plane& labels, const cv::Mat& mask, int rounds) {
  const double lambda = 0.05;
  double mu = 5;
  const Plane f = forward(feature);
  const auto masked = [&](const Plane& spectrum, double scale) {
    cv::Mat m;
    mask.convertTo(m, CV_64F);
    return forward(inverse(spectrum).mul(m * scale));
  };
  Plane h = masked(
      each(f, labels, f, [&](Complex a, Complex y, Complex) { return a * std::conj(y) / (std::norm(a) + lambda); }), 1);
  Plane l(f.size(), cv::Vec2d(0, 0));
  for (int i = 0; i < rounds; ++i) {
    const Plane cross = each(f, labels, f, [](Complex a, Complex y, Complex) { return a * std::conj(y); });
    const Plane right = each(cross, h, l, [&](Complex s, Complex hh, Complex ll) { return s + mu * hh - ll; });
    const Plane g = each(right, f, f, [&](Complex r, Complex a, Complex) { return r / (std::norm(a) + mu); });
    h = masked(each(g, l, l, [&](Complex a, Complex b, Complex) { return mu * a + b; }), 1.0 / (lambda + mu));
    l = each(l, g, h, [&](Complex a, Complex b, Complex c) { return a + mu * (b - c); });
    mu = std::min(20.0, 3 * mu);
  }
  return h;
}

cv::Mat randomPlane(cv::Size size, int seed) {
  cv::Mat plane(size, CV_32FC1);
  cv::RNG random(static_cast<uint64_t>(seed));
  random.fill(plane, cv::RNG::UNIFORM, -1, 1);
  return plane;
}

struct Case {
  cv::Size size;
  cv::Rect mask;
  bool columnsFirst;
  int rounds;
};

/// For messages: without it the test framework prints bytes, those between the members too.
void PrintTo(const Case& c, std::ostream* out) {
  *out << c.size << ", mask " << c.mask << (c.columnsFirst ? ", columns first, " : ", rows first, ") << c.rounds
       << " rounds";
}

class FilterTest : public testing::TestWithParam<Case> {};

TEST_P(FilterTest, AnswersAsThePublishedMethod) {
  const Case& c = GetParam();
  const cv::Mat labels = gaussianLabels(1.f, c.size);
  cv::Mat mask = cv::Mat::zeros(c.size, CV_32FC1);
  mask(c.mask) = 1.f;
  if (c.mask.area() > 4) mask.at<float>(c.mask.y, c.mask.x) = 0.5f;
  const cv::Mat feature = randomPlane(c.size, 5), seen = randomPlane(c.size, 6);

  CorrelationFilter::Settings settings;
  settings.channels = 1;
  settings.iterations = c.rounds;
  settings.weighted = false;
  settings.columnsFirst = c.columnsFirst;
  const auto planes = [&](const cv::Mat& plane) {
    std::vector<float> out(plane.total() * kBlock, 0.f);
    for (int y = 0; y < plane.rows; ++y)
      for (int x = 0; x < plane.cols; ++x)
        out[static_cast<std::size_t>(c.columnsFirst ? x * plane.rows + y : y * plane.cols + x) * kBlock] =
            plane.at<float>(y, x);
    return out;
  };
  for (const Kernels* set : {&baselineKernels(), &kernels()}) {
    CorrelationFilter filter;
    filter.setup(*set, labels, settings);
    filter.learnFirst(planes(feature).data(), mask);
    const cv::Mat ours = filter.respond(planes(seen).data());

    cv::Mat labels64;
    labels.convertTo(labels64, CV_64FC2);
    const Plane h = filterOf(feature, labels64, mask, c.rounds);
    const cv::Mat expected =
        inverse(each(forward(seen), h, h, [](Complex a, Complex b, Complex) { return a * std::conj(b); }));
    cv::Mat ours64;
    ours.convertTo(ours64, CV_64F);
    EXPECT_LT(cv::norm(ours64, expected, cv::NORM_INF), 2e-4 * std::max(1.0, cv::norm(expected, cv::NORM_INF)))
        << set->name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Masks, FilterTest,
    testing::Values(Case{{50, 50}, {18, 15, 7, 20}, true, 4}, Case{{50, 50}, {18, 15, 7, 20}, false, 4},
                    Case{{50, 50}, {10, 20, 30, 8}, false, 4}, Case{{37, 41}, {0, 0, 37, 41}, true, 4},
                    Case{{37, 41}, {35, 0, 2, 41}, false, 4}, Case{{16, 30}, {5, 5, 1, 1}, true, 2},
                    Case{{21, 14}, {3, 4, 6, 5}, false, 0}, Case{{2, 2}, {0, 0, 1, 1}, true, 4},
                    Case{{62, 62}, {20, 20, 21, 22}, true, 1}, Case{{22, 26}, {0, 0, 22, 26}, true, 4},
                    // Lengths that are and are not multiples of four or two, with even and odd masks.
                    Case{{80, 80}, {29, 29, 20, 20}, false, 4}, Case{{80, 77}, {28, 31, 21, 12}, true, 4},
                    Case{{77, 80}, {1, 1, 70, 79}, false, 3}, Case{{46, 50}, {3, 0, 43, 50}, true, 4},
                    Case{{4, 6}, {1, 1, 2, 3}, false, 4}, Case{{8, 2}, {0, 0, 8, 2}, true, 4},
                    Case{{12, 9}, {11, 8, 1, 1}, false, 4}));

/// Where the peak of an answer lies: its largest element, and a parabola through that and its neighbours in the row.
double peakAlongRow(const cv::Mat& answer) {
  cv::Mat plane;
  answer.convertTo(plane, CV_64F);
  cv::Point peak;
  cv::minMaxLoc(plane, nullptr, nullptr, nullptr, &peak);
  const auto value = [&](int x) { return plane.at<double>(peak.y, (x + plane.cols) % plane.cols); };
  const double before = value(peak.x - 1), middle = value(peak.x), after = value(peak.x + 1);
  return peak.x + 0.5 * (after - before) / (2 * middle - after - before);
}

// A box is whole pixels: it stays the same as long as its place is known well enough.
TEST(Filter, PeaksWhereDoublesPutThePeak) {
  constexpr double kElements = 2e-6;  // of a float's last digits, of 50 elements
  for (const int n : {50, 77, 80})
    for (const int seed : {1, 2, 3}) {
      const cv::Size size(n, n);
      const cv::Mat labels = gaussianLabels(1.f, size);
      cv::Mat feature, seen, labels64, mask = cv::Mat::zeros(size, CV_32FC1);
      mask(cv::Rect(n / 3, n / 3, n / 4, n / 4)) = 1.f;
      cv::GaussianBlur(randomPlane(size, seed), feature, {}, 1.5);
      const cv::Mat moved = (cv::Mat_<double>(2, 3) << 1, 0, 0.37, 0, 1, -0.2);
      cv::warpAffine(feature, seen, moved, size);
      CorrelationFilter::Settings settings;
      settings.channels = 1;
      settings.weighted = false;
      const auto planes = [](const cv::Mat& plane) {
        std::vector<float> out(plane.total() * kBlock, 0.f);
        for (std::size_t i = 0; i < plane.total(); ++i) out[i * kBlock] = plane.ptr<float>()[i];
        return out;
      };
      labels.convertTo(labels64, CV_64FC2);
      const Plane h = filterOf(feature, labels64, mask, 4);
      const cv::Mat expected =
          inverse(each(forward(seen), h, h, [](Complex a, Complex b, Complex) { return a * std::conj(b); }));
      for (const Kernels* set : {&baselineKernels(), &kernels()}) {
        CorrelationFilter filter;
        filter.setup(*set, labels, settings);
        filter.learnFirst(planes(feature).data(), mask);
        EXPECT_NEAR(peakAlongRow(filter.respond(planes(seen).data())), peakAlongRow(expected), kElements)
            << set->name << ", " << n << " elements, seed " << seed;
      }
    }
}

TEST(Filter, IsZeroWithoutAMask) {
  CorrelationFilter filter;
  CorrelationFilter::Settings settings;
  settings.channels = 1;
  settings.weighted = false;
  filter.setup(kernels(), gaussianLabels(1.f, {20, 20}), settings);
  std::vector<float> planes(20 * 20 * kBlock, 1.f);
  filter.learnFirst(planes.data(), cv::Mat::zeros(20, 20, CV_32FC1));
  EXPECT_EQ(cv::countNonZero(filter.respond(planes.data())), 0);
}

}  // namespace
}  // namespace csrt_engine
