// Writes the table of messages as text, one line a message and a field, for comparing it with another one's.
#include "mavlink/message_table.h"

#include <cstdio>

int main() {
  for (const mavlink::MessageInfo* message = mavlink::messagesBegin(); message != mavlink::messagesEnd(); ++message) {
    std::printf("%s %u %d %zu\n", message->name, message->id, message->seed, mavlink::payloadSize(*message, true));
    std::size_t offset = 0;
    for (std::size_t i = 0; i < message->fieldCount; ++i) {
      const mavlink::FieldInfo& field = message->fields[i];
      std::printf("  %s %zu %zu %zu %s\n", field.name, offset, field.size, field.count,
                  field.extension ? "later" : "base");
      offset += mavlink::bytesOf(field);
    }
  }
}
