// Any bytes as a stream of MAVLink frames: no crash; how the stream comes apart does not matter; what was read can be
// written and is then read the same.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_check.h"
#include "mavlink/codec.h"

namespace {

using Frames = std::vector<mavlink::Frame>;

void collect(mavlink::FrameReader& reader, Frames& frames) {
  for (mavlink::Frame frame; reader.next(frame);) frames.push_back(frame);
}

bool same(const mavlink::Frame& a, const mavlink::Frame& b) {
  return a.version == b.version && a.sequence == b.sequence && a.system == b.system && a.component == b.component &&
         a.id == b.id && a.isSigned == b.isSigned && a.payload == b.payload;
}

std::vector<std::uint8_t> whole(const mavlink::Frame& frame) {
  const mavlink::MessageInfo& message = *mavlink::findMessage(frame.id);
  alignas(8) std::uint8_t memory[512] = {};
  mavlink::unpackPayload(message, frame.payload, memory);
  return mavlink::packPayload(message, memory);
}

void checkWrittenIsRead(const mavlink::Frame& frame) {
  const std::vector<std::uint8_t> bytes = mavlink::encodeFrame(frame);
  mavlink::FrameReader reader;
  reader.addDatagram(bytes.data(), bytes.size());
  mavlink::Frame again;
  fuzzCheck(reader.next(again), "what was written is a frame");
  fuzzCheck(again.id == frame.id && again.system == frame.system && whole(again) == whole(frame), "it is the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Frames atOnce;
  mavlink::FrameReader reader;
  reader.addBytes(data, size);
  collect(reader, atOnce);
  for (const std::size_t step : {std::size_t{1}, std::size_t{7}}) {
    Frames pieces;
    mavlink::FrameReader slow;
    for (std::size_t at = 0; at < size; at += step) {
      slow.addBytes(data + at, std::min(step, size - at));
      collect(slow, pieces);
    }
    fuzzCheck(std::equal(pieces.begin(), pieces.end(), atOnce.begin(), atOnce.end(), same), "pieces do not matter");
  }
  mavlink::FrameReader datagram;
  datagram.addDatagram(data, size);
  Frames inDatagram;
  collect(datagram, inDatagram);
  fuzzCheck(inDatagram.size() >= atOnce.size(), "a datagram hides no frame");
  for (const mavlink::Frame& frame : inDatagram) checkWrittenIsRead(frame);
  return 0;
}
