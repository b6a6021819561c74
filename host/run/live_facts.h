// What is known of a live frame, on its way into the plug-in's metadata and into records.
#pragma once

#include "input/frame_source.h"
#include "input/metadata_file.h"
#include "plugin/call_record.h"

namespace host {

/// What a live camera said about a frame, each number in the type in which the plug-in expects its key. Keys that are
/// not known, and texts, are left out. Pure.
MetadataTable::Metadata metadataOf(const LiveFacts& live);

/// Age and dropped frames go into a record, once the answer is there. Nothing for a frame that is not live.
void addLiveFacts(CallRecord& record, const SourceFrame& frame);

}  // namespace host
