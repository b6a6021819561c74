#include "st0601.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace klv {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint8_t, 16> kKey = {0x06, 0x0E, 0x2B, 0x34, 0x02, 0x0B, 0x01, 0x01,
                                               0x0E, 0x01, 0x03, 0x01, 0x01, 0x00, 0x00, 0x00};
constexpr std::uint64_t kChecksumTag = 1;
constexpr std::uint64_t kTimestampTag = 2;
constexpr std::uint64_t kVersionTag = 65;
constexpr std::uint8_t kVersionWritten = 13;

/// A value that is stored as a scaled whole number: [low, high] over all codes of its size. A signed one is symmetric
/// about 0 and keeps its smallest code for "out of range".
struct Scaled {
  std::uint64_t tag;
  std::size_t bytes;
  bool isSigned;
  double low;
  double high;
  std::optional<double> CameraState::*member;
};

constexpr std::array<Scaled, 15> kScaled = {{
    {5, 2, false, 0.0, 360.0, &CameraState::platformHeadingDeg},
    {6, 2, true, -20.0, 20.0, &CameraState::platformPitchDeg},
    {7, 2, true, -50.0, 50.0, &CameraState::platformRollDeg},
    {13, 4, true, -90.0, 90.0, &CameraState::sensorLatitudeDeg},
    {14, 4, true, -180.0, 180.0, &CameraState::sensorLongitudeDeg},
    {15, 2, false, -900.0, 19000.0, &CameraState::sensorAltitudeM},
    {16, 2, false, 0.0, 180.0, &CameraState::horizontalFovDeg},
    {17, 2, false, 0.0, 180.0, &CameraState::verticalFovDeg},
    {18, 4, false, 0.0, 360.0, &CameraState::sensorAzimuthDeg},
    {19, 4, true, -180.0, 180.0, &CameraState::sensorElevationDeg},
    {20, 4, false, 0.0, 360.0, &CameraState::sensorRollDeg},
    {21, 4, false, 0.0, 5000000.0, &CameraState::slantRangeM},
    {23, 4, true, -90.0, 90.0, &CameraState::frameCenterLatitudeDeg},
    {24, 4, true, -180.0, 180.0, &CameraState::frameCenterLongitudeDeg},
    {25, 2, false, -900.0, 19000.0, &CameraState::frameCenterElevationM},
}};

/// Reads forward through bytes without ever passing their end.
class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  bool tryByte(std::uint8_t& value) {
    if (left_ == 0) return false;
    value = *at_++;
    --left_;
    return true;
  }

  /// A number of `count` bytes, the highest first. @param count  at most 8
  bool tryNumber(std::size_t count, std::uint64_t& value) {
    if (count > left_ || count > 8) return false;
    value = 0;
    for (std::size_t i = 0; i < count; ++i) value = value << 8 | *at_++;
    left_ -= count;
    return true;
  }

  /// A length: one byte below 128, or the number of bytes that follow and hold it.
  bool tryLength(std::uint64_t& value) {
    std::uint8_t first = 0;
    if (!tryByte(first)) return false;
    if (first < 0x80) {
      value = first;
      return true;
    }
    const std::size_t count = first & 0x7FU;
    return count > 0 && tryNumber(count, value);
  }

  /// A tag: seven bits a byte, all but the last byte with their top bit set.
  bool tryTag(std::uint64_t& value) {
    value = 0;
    for (int i = 0; i < 4; ++i) {
      std::uint8_t byte = 0;
      if (!tryByte(byte)) return false;
      value = value << 7 | (byte & 0x7FU);
      if (byte < 0x80) return true;
    }
    return false;
  }

  bool trySkip(std::uint64_t count) {
    if (count > left_) return false;
    at_ += count;
    left_ -= static_cast<std::size_t>(count);
    return true;
  }

  const std::uint8_t* at() const { return at_; }
  std::size_t left() const { return left_; }

 private:
  const std::uint8_t* at_;
  std::size_t left_;
};

std::optional<double> valueOf(const Scaled& row, std::uint64_t code) {
  const std::uint64_t codes = row.bytes == 2 ? 0xFFFFU : 0xFFFFFFFFU;
  if (!row.isSigned) {
    return row.low + (row.high - row.low) * static_cast<double>(code) / static_cast<double>(codes);
  }
  const std::int64_t half = static_cast<std::int64_t>(codes / 2);
  const std::int64_t number = code > static_cast<std::uint64_t>(half)
                                  ? static_cast<std::int64_t>(code) - static_cast<std::int64_t>(codes) - 1
                                  : static_cast<std::int64_t>(code);
  if (number == -half - 1) return std::nullopt;  // "out of range"
  return row.high * static_cast<double>(number) / static_cast<double>(half);
}

std::uint64_t codeOf(const Scaled& row, double value) {
  const std::uint64_t codes = row.bytes == 2 ? 0xFFFFU : 0xFFFFFFFFU;
  const double clamped = std::min(std::max(value, row.low), row.high);
  if (!row.isSigned) {
    return static_cast<std::uint64_t>(
        std::llround((clamped - row.low) / (row.high - row.low) * static_cast<double>(codes)));
  }
  const auto half = static_cast<double>(codes / 2);
  return static_cast<std::uint64_t>(std::llround(clamped / row.high * half)) & codes;
}

/// Takes one value into the state. False where its size is not that of its tag; an unknown tag is passed over.
bool take(std::uint64_t tag, const std::uint8_t* data, std::size_t size, CameraState& state) {
  std::uint64_t code = 0;
  Reader value(data, size);
  if (size == 0) return true;  // the standard's "nothing known"
  if (tag == kTimestampTag || tag == kVersionTag) {
    const std::size_t wanted = tag == kTimestampTag ? 8 : 1;
    if (size != wanted || !value.tryNumber(wanted, code)) return false;
    if (tag == kTimestampTag) state.timestampUs = code;
    if (tag == kVersionTag) state.version = static_cast<std::uint8_t>(code);
    return true;
  }
  for (const Scaled& row : kScaled) {
    if (row.tag != tag) continue;
    if (size != row.bytes || !value.tryNumber(row.bytes, code)) return false;
    state.*row.member = valueOf(row, code);
    return true;
  }
  return true;
}

/// Walks over the values of a whole packet. The checksum must be the last one.
Verdict readValues(Reader values, CameraState& state, bool& hasChecksum, std::uint16_t& stored) {
  while (values.left() > 0) {
    std::uint64_t tag = 0;
    std::uint64_t length = 0;
    if (!values.tryTag(tag) || !values.tryLength(length) || length > values.left()) return Verdict::Malformed;
    const std::uint8_t* const data = values.at();
    values.trySkip(length);
    if (tag == kChecksumTag) {
      if (length != 2 || values.left() > 0) return Verdict::Malformed;
      stored = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
      hasChecksum = true;
    } else if (!take(tag, data, static_cast<std::size_t>(length), state)) {
      return Verdict::Malformed;
    }
  }
  return Verdict::Good;
}

void append(Bytes& out, std::uint64_t value, std::size_t bytes) {
  for (std::size_t i = bytes; i-- > 0;) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void appendValue(Bytes& out, std::uint64_t tag, std::uint64_t value, std::size_t bytes) {
  out.push_back(static_cast<std::uint8_t>(tag));
  out.push_back(static_cast<std::uint8_t>(bytes));
  append(out, value, bytes);
}

void appendLength(Bytes& out, std::size_t length) {
  if (length >= 0x80) out.push_back(length > 0xFF ? 0x82 : 0x81);
  append(out, length, length > 0xFF ? 2 : 1);
}

}  // namespace

const char* name(Verdict verdict) {
  switch (verdict) {
    case Verdict::Good:
      return "good";
    case Verdict::NotAPacket:
      return "not a packet";
    case Verdict::Truncated:
      return "truncated";
    case Verdict::Malformed:
      return "malformed";
    case Verdict::NoChecksum:
      return "no checksum";
    case Verdict::BadChecksum:
      return "bad checksum";
  }
  return "";
}

std::uint16_t checksum(const std::uint8_t* data, std::size_t size) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < size; ++i) sum += static_cast<std::uint32_t>(data[i]) << (i % 2 == 0 ? 8 : 0);
  return static_cast<std::uint16_t>(sum);
}

std::size_t findPacket(const std::uint8_t* data, std::size_t size, std::size_t from) {
  if (from >= size) return size;
  const std::uint8_t* const found = std::search(data + from, data + size, kKey.begin(), kKey.end());
  return static_cast<std::size_t>(found - data);
}

Decoded decode(const std::uint8_t* data, std::size_t size) {
  Decoded result;
  if (size < kKey.size() || !std::equal(kKey.begin(), kKey.end(), data)) return result;
  Reader packet(data, size);
  packet.trySkip(kKey.size());
  std::uint64_t length = 0;
  if (!packet.tryLength(length)) {
    result.verdict = packet.left() == 0 ? Verdict::Truncated : Verdict::Malformed;
    return result;
  }
  if (length > packet.left()) {
    result.verdict = Verdict::Truncated;
    return result;
  }
  result.size = static_cast<std::size_t>(packet.at() - data) + static_cast<std::size_t>(length);
  CameraState state;
  bool hasChecksum = false;
  result.verdict = readValues(Reader(packet.at(), static_cast<std::size_t>(length)), state, hasChecksum, result.stored);
  if (result.verdict != Verdict::Good) return result;
  result.verdict = Verdict::NoChecksum;
  if (!hasChecksum) return result;
  result.computed = checksum(data, result.size - 2);
  result.verdict = result.stored == result.computed ? Verdict::Good : Verdict::BadChecksum;
  if (result.verdict == Verdict::Good) result.state = state;
  return result;
}

Bytes encode(const CameraState& state) {
  Bytes values;
  appendValue(values, kTimestampTag, state.timestampUs.value_or(0), 8);
  for (const Scaled& row : kScaled) {
    const std::optional<double>& value = state.*row.member;
    if (value && !std::isnan(*value)) appendValue(values, row.tag, codeOf(row, *value), row.bytes);
  }
  appendValue(values, kVersionTag, state.version.value_or(kVersionWritten), 1);
  Bytes packet(kKey.begin(), kKey.end());
  appendLength(packet, values.size() + 4);
  packet.insert(packet.end(), values.begin(), values.end());
  packet.push_back(static_cast<std::uint8_t>(kChecksumTag));
  packet.push_back(2);
  append(packet, checksum(packet.data(), packet.size()), 2);
  return packet;
}

}  // namespace klv
