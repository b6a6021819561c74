// The checksum of a frame: CRC-16/MCRF4XX, polynomial 0x1021 reflected, start 0xffff.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mavlink {

constexpr std::uint16_t kCrcStart = 0xffff;

/// The checksum after one more byte. Pure.
constexpr std::uint16_t crcAdd(std::uint16_t crc, std::uint8_t byte) {
  const auto mixed = static_cast<std::uint8_t>(byte ^ (crc & 0xff));
  const auto folded = static_cast<std::uint8_t>(mixed ^ (mixed << 4));
  return static_cast<std::uint16_t>((crc >> 8) ^ (folded << 8) ^ (folded << 3) ^ (folded >> 4));
}

/// The checksum after `size` more bytes. Pure.
constexpr std::uint16_t crcAdd(std::uint16_t crc, const std::uint8_t* bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) crc = crcAdd(crc, bytes[i]);
  return crc;
}

}  // namespace mavlink
