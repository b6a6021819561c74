// Nothing that a host gets wrong may crash the plug-in, keep its lock, or spoil it for an honest call afterwards.
#include "support/faulty_host.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

namespace {

constexpr int kSequences = 60;
constexpr int kCallsEach = 40;

std::vector<std::uint8_t> drawBytes(unsigned seed) {
  std::mt19937 generator(seed);
  std::vector<std::uint8_t> bytes(4000);
  for (std::uint8_t& b : bytes) b = static_cast<std::uint8_t>(generator() >> 24U);
  return bytes;
}

// CSRT_FAULTY_SEQUENCES asks for a longer run.
int sequences() {
  const char* wanted = std::getenv("CSRT_FAULTY_SEQUENCES");
  return wanted != nullptr ? std::atoi(wanted) : kSequences;
}

}  // namespace

TEST(FaultyHost, BreaksNoPromiseAndIsServedAfterwards) {
  for (int seed = 1; seed <= sequences(); ++seed) {
    ByteSource source(drawBytes(static_cast<unsigned>(seed)));
    FaultyHost host(source);
    for (int call = 0; call < kCallsEach; ++call) {
      ASSERT_EQ(host.step(), "") << "seed " << seed << ", call " << call;
    }
    ASSERT_EQ(host.recover(), "") << "seed " << seed;
  }
}
