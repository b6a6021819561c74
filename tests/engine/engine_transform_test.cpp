// The engine's own transforms compared with cv::dft, for sizes with all kinds of prime factors.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <vector>

#include "fft_plan.h"
#include "kernels.h"

namespace csrt_engine {
namespace {

struct Planes {
  int nu, nv;
  std::vector<float> values;  // nv x nu elements of eight
  Planes(int u, int v, int seed) : nu(u), nv(v), values(static_cast<std::size_t>(u * v * kBlock)) {
    cv::RNG random(static_cast<uint64_t>(seed));
    for (float& x : values) x = random.uniform(-1.f, 1.f);
  }
  cv::Mat channel(int c) const {
    cv::Mat plane(nv, nu, CV_32FC1);
    for (int v = 0; v < nv; ++v)
      for (int u = 0; u < nu; ++u) plane.at<float>(v, u) = values[static_cast<std::size_t>((v * nu + u) * kBlock + c)];
    return plane;
  }
};

struct Transforms {
  FftTables u, v;
  Grid grid;
  std::vector<float> spectrum, work;
  Transforms(int nu, int nv) : u(nu), v(nv), grid{nu, nv, u.plan(), v.plan()} {
    spectrum.resize(static_cast<std::size_t>(kComplex * grid.half() * nv));
    work.resize(static_cast<std::size_t>(kComplex) * static_cast<std::size_t>(grid.half() * nv + 8 * (nu + nv) + 64));
  }
  cv::Vec2f at(int channel, int ku, int kv) const {
    const float* e = &spectrum[static_cast<std::size_t>(kComplex * (ku * grid.nv + kv))];
    return {e[channel], e[kBlock + channel]};
  }
};

std::vector<const Kernels*> kernelSets() {
  std::vector<const Kernels*> sets{&baselineKernels()};
  if (&kernels() != &baselineKernels()) sets.push_back(&kernels());
  return sets;
}

class TransformTest : public testing::TestWithParam<cv::Size> {};

TEST_P(TransformTest, ForwardIsTheLibrarysTransform) {
  const int nu = GetParam().width, nv = GetParam().height;
  const Planes planes(nu, nv, 7);
  for (const Kernels* set : kernelSets()) {
    Transforms t(nu, nv);
    set->forward(t.grid, planes.values.data(), t.spectrum.data(), t.work.data());
    for (const int channel : {0, 3, 7}) {
      cv::Mat expected;
      cv::dft(planes.channel(channel), expected, cv::DFT_COMPLEX_OUTPUT);
      const double tolerance = 1e-5 * std::sqrt(static_cast<double>(nu * nv));
      for (int kv = 0; kv < nv; ++kv)
        for (int ku = 0; ku < t.grid.half(); ++ku)
          ASSERT_LT(cv::norm(t.at(channel, ku, kv) - expected.at<cv::Vec2f>(kv, ku)), tolerance)
              << set->name << ' ' << nu << 'x' << nv << " channel " << channel << " at " << ku << ',' << kv;
    }
  }
}

TEST_P(TransformTest, ResponsesAreTheLibrarysInverseTransforms) {
  const int nu = GetParam().width, nv = GetParam().height;
  const Planes planes(nu, nv, 11), other(nu, nv, 12);
  for (const Kernels* set : kernelSets()) {
    Transforms a(nu, nv), b(nu, nv);
    set->forward(a.grid, planes.values.data(), a.spectrum.data(), a.work.data());
    set->forward(b.grid, other.values.data(), b.spectrum.data(), b.work.data());
    float peaks[kBlock], weights[kBlock];
    set->responsePeaks(a.grid, a.spectrum.data(), b.spectrum.data(), a.work.data(), peaks);
    cv::Mat sum = cv::Mat::zeros(nv, nu, CV_32FC1);
    for (int c = 0; c < kBlock; ++c) {
      weights[c] = 0.1f * static_cast<float>(c + 1);
      cv::Mat fa, fb, response;
      cv::dft(planes.channel(c), fa, cv::DFT_COMPLEX_OUTPUT);
      cv::dft(other.channel(c), fb, cv::DFT_COMPLEX_OUTPUT);
      cv::mulSpectrums(fa, fb, response, 0, true);
      cv::idft(response, response, cv::DFT_SCALE | cv::DFT_REAL_OUTPUT);
      double most;
      cv::minMaxLoc(response, nullptr, &most);
      EXPECT_NEAR(peaks[c], most, 1e-4 * std::sqrt(static_cast<double>(nu * nv))) << set->name;
      sum += response * weights[c];
    }
    std::vector<float> plane(static_cast<std::size_t>(nu * nv));
    set->response(a.grid, a.spectrum.data(), b.spectrum.data(), weights, 1, a.work.data(), plane.data());
    const cv::Mat ours(nv, nu, CV_32FC1, plane.data());
    EXPECT_LT(cv::norm(ours, sum, cv::NORM_INF), 1e-4 * std::sqrt(static_cast<double>(nu * nv))) << set->name;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, TransformTest,
                         testing::Values(cv::Size(2, 2), cv::Size(3, 2), cv::Size(50, 50), cv::Size(49, 47),
                                         cv::Size(16, 9), cv::Size(31, 62), cv::Size(66, 77), cv::Size(80, 13),
                                         cv::Size(1, 5), cv::Size(37, 37), cv::Size(4, 1), cv::Size(101, 6)));

TEST(KernelSets, GiveTheSameBits) {
  const int nu = 50, nv = 45;
  const Planes planes(nu, nv, 3);
  Transforms first(nu, nv);
  baselineKernels().forward(first.grid, planes.values.data(), first.spectrum.data(), first.work.data());
  for (const Kernels* set : kernelSets()) {
    Transforms t(nu, nv);
    set->forward(t.grid, planes.values.data(), t.spectrum.data(), t.work.data());
    EXPECT_EQ(t.spectrum, first.spectrum) << set->name;
  }
}

}  // namespace
}  // namespace csrt_engine
