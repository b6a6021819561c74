#include "fft_plan.h"

#include <cmath>
#include <cstddef>

namespace csrt_engine {
namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<int> factors(int n) {
  std::vector<int> found;
  while (n % 4 == 0) found.push_back(4), n /= 4;
  for (int f = 2; f <= n / f; ++f)
    while (n % f == 0) found.push_back(f), n /= f;
  if (n > 1) found.push_back(n);
  return found;
}

void appendAngle(std::vector<float>& numbers, long long step, long long of) {
  const double angle = 2.0 * kPi * static_cast<double>(step % of) / static_cast<double>(of);
  numbers.push_back(static_cast<float>(std::cos(angle)));
  numbers.push_back(static_cast<float>(std::sin(angle)));
}

}  // namespace

FftTables::FftTables(int n) : n_(n) {
  struct Offsets {
    std::size_t twiddles, roots;
  };
  std::vector<Offsets> offsets;
  int length = n, s = 1;
  for (const int radix : factors(n)) {
    const int m = length / radix;
    Offsets at{numbers_.size(), 0};
    for (int p = 0; p < m; ++p)
      for (int t = 1; t < radix; ++t) appendAngle(numbers_, static_cast<long long>(p) * t, length);
    at.roots = numbers_.size();
    for (int t = 0; t < radix; ++t) appendAngle(numbers_, t, radix);
    offsets.push_back(at);
    stages_.push_back({radix, m, s, nullptr, nullptr});
    length = m;
    s *= radix;
  }
  for (std::size_t i = 0; i < stages_.size(); ++i) {
    stages_[i].twiddles = numbers_.data() + offsets[i].twiddles;
    stages_[i].roots = numbers_.data() + offsets[i].roots;
  }
}

DirectTables::DirectTables(int n) : n_(n) {
  const int columns = n / 2 + 1, rows = n / 2 + 1;
  for (const int odd : {1, 0})
    for (const bool sine : {false, true})
      for (int d = 0; d < rows; ++d)
        for (int k = 0; k < columns; ++k) {
          const long long step = static_cast<long long>(k) * (2 * d + (odd ? 0 : 1));  // in halves of an element
          const double angle = kPi * static_cast<double>(step % (2LL * n)) / n;
          numbers_.insert(numbers_.end(), kTableWidth, static_cast<float>(sine ? std::sin(angle) : std::cos(angle)));
        }
}

DirectTable DirectTables::forWidth(int width) const {
  const std::size_t size = kTableWidth * static_cast<std::size_t>(n_ / 2 + 1) * static_cast<std::size_t>(n_ / 2 + 1);
  const float* first = numbers_.data() + (twiceOrigin(n_, width) % 2 == 0 ? 0 : 2 * size);
  return {n_, n_ / 2 + 1, first, first + size};
}

std::vector<float> unitRoots(int n) {
  std::vector<float> roots;
  roots.reserve(2 * static_cast<std::size_t>(n));
  for (int j = 0; j < n; ++j) appendAngle(roots, j, n);
  return roots;
}

}  // namespace csrt_engine
