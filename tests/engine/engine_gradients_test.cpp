// Gradients: the direction and the channel that are chosen are the library's, also where they nearly tie.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include "kernels.h"

namespace csrt_engine {
namespace {

struct Choice {
  int direction;
  double length;
};

/// The choice among three channels in doubles on pixels divided by 255: channel red first, ties keep the earlier one.
template <typename Pixel>
Choice chosen(const Pixel* const* above, const Pixel* const* row, const Pixel* const* below, int x) {
  constexpr double kX[9] = {1.000, 0.9397, 0.7660, 0.5000, 0.1736, -0.1736, -0.5000, -0.7660, -0.9397};
  constexpr double kY[9] = {0.000, 0.3420, 0.6428, 0.8660, 0.9848, 0.9848, 0.8660, 0.6428, 0.3420};
  const double unit = 1.0 / 255.0;
  double v = 0, dx = 0, dy = 0;
  for (int c = 2; c >= 0; --c) {
    const double cy = below[c][x] * unit - above[c][x] * unit, cx = row[c][x + 1] * unit - row[c][x - 1] * unit;
#if defined(__aarch64__)
    const double e = std::fma(cx, cx, cy * cy);  // so the compiler makes it in the library there
#else
    const double e = cx * cx + cy * cy;
#endif
    if (c < 2 && !(e > v)) continue;
    v = e, dx = cx, dy = cy;
  }
  double best = 0;
  int direction = 0;
  for (int o = 0; o < 9; ++o) {
    const double dot = kX[o] * dx + kY[o] * dy;
    if (dot > best) {
      best = dot, direction = o;
    } else if (-dot > best) {
      best = -dot, direction = o + 9;
    }
  }
  return {direction, std::sqrt(v)};
}

std::vector<const Kernels*> kernelSets() {
  return {&baselineKernels(), &kernels()};
}

template <typename Pixel>
struct Rows {
  static constexpr int kRoom = 64;
  std::vector<Pixel> data;
  int n;
  explicit Rows(int width) : data(static_cast<std::size_t>(9 * (width + kRoom))), n(width) {}
  Pixel* at(int row, int channel) { return &data[static_cast<std::size_t>((row * 3 + channel) * (n + kRoom))]; }
};

TEST(PixelGradients, EveryPossibleGradientGetsTheLibrarysDirection) {
  Rows<uint8_t> rows(3 * 511);  // groups of three pixels: left, centre, right
  const uint8_t *above[3], *row[3], *below[3];
  for (int c = 0; c < 3; ++c) above[c] = rows.at(0, c), row[c] = rows.at(1, c), below[c] = rows.at(2, c);
  std::vector<float> length(static_cast<std::size_t>(rows.n + 16));
  std::vector<uint8_t> direction(length.size());
  for (int dy = -255; dy <= 255; ++dy) {
    for (int dx = -255; dx <= 255; ++dx)
      for (int c = 0; c < 3; ++c) {
        const int x = 3 * (dx + 255) + 1;
        rows.at(1, c)[x - 1] = static_cast<uint8_t>(dx < 0 ? -dx : 0);
        rows.at(1, c)[x + 1] = static_cast<uint8_t>(dx > 0 ? dx : 0);
        rows.at(0, c)[x] = static_cast<uint8_t>(dy < 0 ? -dy : 0);
        rows.at(2, c)[x] = static_cast<uint8_t>(dy > 0 ? dy : 0);
      }
    for (const Kernels* set : kernelSets()) {
      set->gradientRow(above, row, below, rows.n, length.data(), direction.data());
      for (int x = 1; x < rows.n - 1; x += 3)
        ASSERT_EQ(direction[static_cast<std::size_t>(x)], chosen(above, row, below, x).direction)
            << set->name << " dx " << (x - 1) / 3 - 255 << " dy " << dy;
    }
  }
}

TEST(PixelGradients, ChannelsOfEqualStrengthAreDecidedAsTheLibraryDoes) {
  std::mt19937 random(4);
  for (const int range : {2, 4, 9, 40, 256})
    for (int round = 0; round < 40; ++round) {
      Rows<uint8_t> rows(101);
      const int base = static_cast<int>(random() % static_cast<unsigned>(257 - range));
      for (uint8_t& v : rows.data)
        v = static_cast<uint8_t>(base + static_cast<int>(random() % static_cast<unsigned>(range)));
      const uint8_t *above[3], *row[3], *below[3];
      for (int c = 0; c < 3; ++c) above[c] = rows.at(0, c), row[c] = rows.at(1, c), below[c] = rows.at(2, c);
      std::vector<float> length(static_cast<std::size_t>(rows.n + 16));
      std::vector<uint8_t> direction(length.size());
      for (const Kernels* set : kernelSets()) {
        set->gradientRow(above, row, below, rows.n, length.data(), direction.data());
        for (int x = 1; x < rows.n - 1; ++x) {
          const Choice expected = chosen(above, row, below, x);
          ASSERT_EQ(direction[static_cast<std::size_t>(x)], expected.direction) << set->name << " range " << range;
          ASSERT_NEAR(length[static_cast<std::size_t>(x)], expected.length, 1e-6);
        }
      }
    }
}

TEST(SampleGradients, NearTiesAreDecidedAsTheLibraryDoes) {
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    Rows<float> rows(24);
    const int steps = round % 3 == 0 ? 3 : round % 3 == 1 ? 17 : 4096;
    for (float& v : rows.data)  // fractions that linear sampling makes, few of them so that many gradients tie
      v = static_cast<float>(random() % 250u) / (round % 2 ? 1.f : 50.f) +
          static_cast<float>(random() % static_cast<unsigned>(steps)) / static_cast<float>(steps);
    const float *above[3], *row[3], *below[3];
    const long plane = rows.n + Rows<float>::kRoom, down = 3 * plane;
    for (int c = 0; c < 3; ++c) above[c] = rows.at(0, c), row[c] = rows.at(1, c), below[c] = rows.at(2, c);
    std::vector<float> length(static_cast<std::size_t>(rows.n + 16));
    std::vector<int32_t> direction(length.size());
    for (const Kernels* set : kernelSets()) {
      set->sampleGradients(rows.at(1, 0), plane, down, rows.n, length.data(), direction.data());
      for (int x = 1; x < rows.n - 1; ++x) {
        const Choice expected = chosen(above, row, below, x);
        if (expected.length > 0) {
          ASSERT_EQ(direction[static_cast<std::size_t>(x)], expected.direction) << set->name;
        }
        ASSERT_NEAR(length[static_cast<std::size_t>(x)], expected.length, 1e-6);
      }
    }
  }
}

}  // namespace
}  // namespace csrt_engine
