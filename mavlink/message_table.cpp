#include "mavlink/message_table.h"

#include <algorithm>
#include <iterator>

#include "mavlink/crc.h"
#include "mavlink/messages.h"

namespace mavlink {
namespace {

#define MAVLINK_BEGIN(Structure, NAME, id, seed) \
  struct Structure##Layout {                     \
    using S = Structure;                         \
    static constexpr FieldInfo kFields[] = {
#define MAVLINK_FIELD(type, name) {#name, #type, sizeof(type), 0, false, offsetof(S, name)},
#define MAVLINK_ARRAY(type, name, count) {#name, #type, sizeof(type), count, false, offsetof(S, name)},
#define MAVLINK_EXTENSION(type, name) {#name, #type, sizeof(type), 0, true, offsetof(S, name)},
#define MAVLINK_END(Structure) \
  }                            \
  ;                            \
  }                            \
  ;
#include "mavlink/messages.def"

constexpr MessageInfo kMessages[] = {
#define MAVLINK_BEGIN(Structure, NAME, id, seed) \
  {#NAME, id, seed, Structure##Layout::kFields, std::size(Structure##Layout::kFields)},
#define MAVLINK_FIELD(type, name)
#define MAVLINK_ARRAY(type, name, count)
#define MAVLINK_EXTENSION(type, name)
#define MAVLINK_END(Structure)
#include "mavlink/messages.def"
};

constexpr std::uint16_t addWord(std::uint16_t crc, const char* word) {
  for (; *word != '\0'; ++word) crc = crcAdd(crc, static_cast<std::uint8_t>(*word));
  return crcAdd(crc, ' ');
}

/// The seed of a layout: the checksum over its words, folded into one byte.
constexpr std::uint8_t seedOf(const MessageInfo& message) {
  std::uint16_t crc = addWord(kCrcStart, message.name);
  for (std::size_t i = 0; i < message.fieldCount; ++i) {
    const FieldInfo& field = message.fields[i];
    if (field.extension) continue;
    crc = addWord(addWord(crc, field.type), field.name);
    if (field.count > 0) crc = crcAdd(crc, static_cast<std::uint8_t>(field.count));
  }
  return static_cast<std::uint8_t>((crc & 0xff) ^ (crc >> 8));
}

/// Largest type first, extensions last.
constexpr bool isInSendingOrder(const MessageInfo& message) {
  for (std::size_t i = 1; i < message.fieldCount; ++i) {
    const FieldInfo& before = message.fields[i - 1];
    const FieldInfo& here = message.fields[i];
    if (before.extension && !here.extension) return false;
    if (!here.extension && here.size > before.size) return false;
  }
  return true;
}

constexpr bool tableIsSound() {
  std::int64_t previous = -1;
  for (const MessageInfo& message : kMessages) {
    if (seedOf(message) != message.seed || !isInSendingOrder(message)) return false;
    if (payloadSize(message, true) > 255) return false;
    if (message.id <= previous) return false;
    previous = message.id;
  }
  return true;
}
static_assert(tableIsSound(), "messages.def: a seed, the order of fields or the order of ids is wrong");

}  // namespace

const MessageInfo* findMessage(std::uint32_t id) {
  const auto* const end = std::end(kMessages);
  const auto* const found = std::lower_bound(
      std::begin(kMessages), end, id, [](const MessageInfo& message, std::uint32_t i) { return message.id < i; });
  return found != end && found->id == id ? found : nullptr;
}

const MessageInfo* messagesBegin() {
  return std::begin(kMessages);
}

const MessageInfo* messagesEnd() {
  return std::end(kMessages);
}

}  // namespace mavlink
