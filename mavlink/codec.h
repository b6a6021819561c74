// From structures to payloads and back, as messages.def lays them out.
#pragma once

#include <cstdint>
#include <vector>

#include "mavlink/frame.h"
#include "mavlink/message_table.h"

namespace mavlink {

/// The payload of a structure, extensions included. Little-endian. Pure.
/// @param structure  of the kind that `message` describes
std::vector<std::uint8_t> packPayload(const MessageInfo& message, const void* structure);

/// Fills a structure. What the payload is too short for becomes zero, what it has too much is passed over: both are
/// how versions of the protocol differ. Pure.
void unpackPayload(const MessageInfo& message, const std::vector<std::uint8_t>& payload, void* structure);

/// A frame without sender and sequence number. Pure.
template <class Message>
Frame toFrame(const Message& message) {
  Frame frame;
  frame.id = Message::kId;
  frame.payload = packPayload(*findMessage(Message::kId), &message);
  return frame;
}

/// @return false, and the message as it was, when the frame holds another one. Pure.
template <class Message>
bool tryRead(const Frame& frame, Message& message) {
  if (frame.id != Message::kId) return false;
  unpackPayload(*findMessage(Message::kId), frame.payload, &message);
  return true;
}

}  // namespace mavlink
