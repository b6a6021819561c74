#include "discriminant.h"

#include <algorithm>
#include <cmath>

namespace csrt_guard {
namespace {

constexpr int kLeast = 6;         // looks of either kind
constexpr double kRidge = 1.0;    // times the mean variance, added to each: few looks say little about so many numbers
constexpr double kNoise = 0.004;  // variance that looks have at least
constexpr double kLeastApart = 1e-9;

std::array<double, Discriminant::kLength> numbersOf(const HalfColours& look) {
  std::array<double, Discriminant::kLength> numbers{};
  auto out = numbers.begin();
  for (const Colours& half : look) {
    for (const float share : half) *out++ = std::sqrt(static_cast<double>(share));
  }
  return numbers;
}

std::size_t at(int row, int column) {
  return static_cast<std::size_t>(row) * Discriminant::kLength + static_cast<std::size_t>(column);
}

/// Solves A x = b for a symmetric, positive definite A of which the lower half is given, by Cholesky's decomposition.
/// Plain loops: the same on every machine.
void solve(std::vector<double>& a, std::array<double, Discriminant::kLength>& b) {
  constexpr int n = Discriminant::kLength;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j <= i; ++j) {
      double sum = a[at(i, j)];
      for (int k = 0; k < j; ++k) sum -= a[at(i, k)] * a[at(j, k)];
      a[at(i, j)] = i == j ? std::sqrt(sum) : sum / a[at(j, j)];
    }
  }
  for (int i = 0; i < n; ++i) {
    double& x = b[static_cast<std::size_t>(i)];
    for (int k = 0; k < i; ++k) x -= a[at(i, k)] * b[static_cast<std::size_t>(k)];
    x /= a[at(i, i)];
  }
  for (int i = n - 1; i >= 0; --i) {
    double& x = b[static_cast<std::size_t>(i)];
    for (int k = i + 1; k < n; ++k) x -= a[at(k, i)] * b[static_cast<std::size_t>(k)];
    x /= a[at(i, i)];
  }
}

}  // namespace

void Discriminant::Kind::add(const HalfColours& look) {
  const Numbers x = numbersOf(look);
  weight_ = weight_ * forget_ + 1.0;
  looks_ = std::min(looks_ + 1, kLeast);
  for (int i = 0; i < kLength; ++i) {
    const double xi = x[static_cast<std::size_t>(i)];
    double& sum = sums_[static_cast<std::size_t>(i)];
    sum = sum * forget_ + xi;
    for (int j = 0; j <= i; ++j) {
      double& product = products_[at(i, j)];
      product = product * forget_ + xi * x[static_cast<std::size_t>(j)];
    }
  }
}

double Discriminant::Kind::covariance(int i, int j) const {
  return products_[at(i, j)] / weight_ - mean(i) * mean(j);
}

void Discriminant::clear() {
  *this = Discriminant();
}

void Discriminant::target(const HalfColours& look) {
  targets_.add(look);
  solved_ = false;
}

void Discriminant::other(const HalfColours& look) {
  others_.add(look);
  solved_ = false;
}

void Discriminant::solve_() {
  std::vector<double> within(static_cast<std::size_t>(kLength) * kLength, 0.0);
  double variance = 0.0;
  Numbers apart{};
  for (int i = 0; i < kLength; ++i) {
    const auto k = static_cast<std::size_t>(i);
    apart[k] = targets_.mean(i) - others_.mean(i);
    middle_[k] = 0.5 * (targets_.mean(i) + others_.mean(i));
    for (int j = 0; j <= i; ++j) within[at(i, j)] = 0.5 * (targets_.covariance(i, j) + others_.covariance(i, j));
    variance += within[at(i, i)] / kLength;
  }
  for (int i = 0; i < kLength; ++i) within[at(i, i)] += kRidge * variance + kNoise;
  direction_ = apart;
  solve(within, direction_);
  apart_ = 0.0;
  for (std::size_t k = 0; k < apart.size(); ++k) apart_ += direction_[k] * apart[k];
  solved_ = true;
}

std::optional<double> Discriminant::of(const HalfColours& look) {
  if (targets_.looks() < kLeast || others_.looks() < kLeast) return std::nullopt;
  if (!solved_) solve_();
  if (apart_ < kLeastApart) return std::nullopt;
  const Numbers x = numbersOf(look);
  double along = 0.0;
  for (std::size_t k = 0; k < x.size(); ++k) along += direction_[k] * (x[k] - middle_[k]);
  return 2.0 * along / apart_;
}

}  // namespace csrt_guard
