#include "mavlink/codec.h"

#include <algorithm>
#include <cstring>

namespace mavlink {
namespace {

/// Copies one number between memory and the little-endian wire; the same both ways.
void copyNumber(std::uint8_t* to, const std::uint8_t* from, std::size_t size) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  std::memcpy(to, from, size);
#else
  std::reverse_copy(from, from + size, to);
#endif
}

std::size_t elementsOf(const FieldInfo& field) {
  return std::max<std::size_t>(field.count, 1);
}

}  // namespace

std::vector<std::uint8_t> packPayload(const MessageInfo& message, const void* structure) {
  const auto* const from = static_cast<const std::uint8_t*>(structure);
  std::vector<std::uint8_t> payload(payloadSize(message, true));
  std::uint8_t* to = payload.data();
  for (std::size_t i = 0; i < message.fieldCount; ++i) {
    const FieldInfo& field = message.fields[i];
    for (std::size_t n = 0; n < elementsOf(field); ++n, to += field.size) {
      copyNumber(to, from + field.inStruct + n * field.size, field.size);
    }
  }
  return payload;
}

void unpackPayload(const MessageInfo& message, const std::vector<std::uint8_t>& payload, void* structure) {
  std::vector<std::uint8_t> whole = payload;
  whole.resize(payloadSize(message, true));
  const std::uint8_t* from = whole.data();
  auto* const to = static_cast<std::uint8_t*>(structure);
  for (std::size_t i = 0; i < message.fieldCount; ++i) {
    const FieldInfo& field = message.fields[i];
    for (std::size_t n = 0; n < elementsOf(field); ++n, from += field.size) {
      copyNumber(to + field.inStruct + n * field.size, from, field.size);
    }
  }
}

}  // namespace mavlink
