// Random numbers that are the same on every machine and library for the same seed.
#pragma once

#include <cstdint>

namespace host {

/// SplitMix64. The distributions of the standard library differ from one library to the next; these do not.
class SeededRandom {
 public:
  explicit SeededRandom(std::uint64_t seed) : state_(seed) {}

  /// The next 64 bits, all equally likely.
  std::uint64_t next() {
    state_ += 0x9E3779B97F4A7C15u;
    std::uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  /// In [0, 1).
  double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
  /// In [0, count); count >= 1.
  std::uint64_t below(std::uint64_t count) { return next() % count; }  // the bias is below 2^-50 for our counts

 private:
  std::uint64_t state_;
};

}  // namespace host
