#include "uuid.h"

#include <array>
#include <mutex>
#include <random>

namespace {

std::array<unsigned, 16> drawBytes() {
  static std::mutex mutex;  // the generator is one for the whole process
  const std::lock_guard<std::mutex> lock(mutex);
  static std::random_device device("default");
  static std::mt19937_64 generator(device());
  static std::uniform_int_distribution<int> byte(0, 255);
  std::array<unsigned, 16> bytes{};
  for (unsigned& b : bytes) b = static_cast<unsigned>(byte(generator));
  return bytes;
}

}  // namespace

std::string makeUuid() {
  static constexpr char kHex[] = "0123456789abcdef";
  std::array<unsigned, 16> bytes = drawBytes();
  bytes[6] = (bytes[6] & 0x0FU) | 0x40U;  // version 4: random
  bytes[8] = (bytes[8] & 0x3FU) | 0x80U;  // variant 1
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kHex[bytes[i] >> 4U];
    text += kHex[bytes[i] & 0x0FU];
  }
  return text;
}
