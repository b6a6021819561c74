#include "run/live_facts.h"

#include <algorithm>
#include <chrono>

#include "input/metadata_keys.h"

namespace host {
namespace {

/// A number in the type in which the plug-in expects the key.
ocula::OculaPicture::MetadataValue metadataValueOf(const std::string& key, double value) {
  switch (metadataKindOf(key)) {
    case MetadataKind::Int:
      return static_cast<int>(value);
    case MetadataKind::Unsigned:
      return static_cast<unsigned long>(std::max(value, 0.0));
    default:
      return value;
  }
}

}  // namespace

MetadataTable::Metadata metadataOf(const LiveFacts& live) {
  MetadataTable::Metadata metadata;
  for (const auto& [name, value] : live.camera) {
    const std::string key =
        name == "follow_me" ? ocula::OculaPicture::BaseMetadata::Keys::kFollowMeEnabledCommand : name;
    const MetadataKind kind = metadataKindOf(key);
    if (kind != MetadataKind::Unknown && kind != MetadataKind::Text) metadata[key] = metadataValueOf(key, value);
  }
  return metadata;
}

void addLiveFacts(CallRecord& record, const SourceFrame& frame) {
  if (!frame.live) return;
  const double now = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  record.ageMs = std::max(0.0, (now - frame.live->capturedAt) * 1000.0);
  record.ageFromSender = frame.live->senderClock;
  record.dropped = frame.live->dropped;
}

}  // namespace host
