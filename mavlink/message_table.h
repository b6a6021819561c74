// What messages.def says, for code that works on any message.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mavlink {

/// One field of a message, in the order of the wire.
struct FieldInfo {
  const char* name;
  const char* type;      ///< As the protocol writes it, such as "uint8_t".
  std::size_t size;      ///< Bytes of one element.
  std::size_t count;     ///< Elements of an array; 0: not an array.
  bool extension;        ///< A later addition: not in version 1, not in the checksum's seed.
  std::size_t inStruct;  ///< Offset in the structure, bytes.
};

/// One message, as it is described in the source.
struct MessageInfo {
  const char* name;
  std::uint32_t id;
  std::uint8_t seed;  ///< The byte that ends the checksum, so that both ends mean the same layout.
  const FieldInfo* fields;
  std::size_t fieldCount;
};

constexpr std::size_t bytesOf(const FieldInfo& field) {
  return field.size * (field.count == 0 ? 1 : field.count);
}

/// The longest payload of a message, extensions included or not. Bytes, at most 255. Pure.
constexpr std::size_t payloadSize(const MessageInfo& message, bool withExtensions) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < message.fieldCount; ++i) {
    if (withExtensions || !message.fields[i].extension) size += bytesOf(message.fields[i]);
  }
  return size;
}

/// nullptr where the id is not spoken here. Pure.
const MessageInfo* findMessage(std::uint32_t id);

/// All messages in the order of their ids, for tests and for the page that lists them. Static storage.
const MessageInfo* messagesBegin();
const MessageInfo* messagesEnd();

}  // namespace mavlink
