#include "mavlink/frame.h"

#include <algorithm>
#include <utility>

#include "mavlink/crc.h"
#include "mavlink/message_table.h"

namespace mavlink {
namespace {

constexpr std::uint8_t kMarkV1 = 0xfe;
constexpr std::uint8_t kMarkV2 = 0xfd;
constexpr std::size_t kHeaderV1 = 6;
constexpr std::size_t kHeaderV2 = 10;
constexpr std::size_t kChecksum = 2;
constexpr std::size_t kSignature = 13;
constexpr std::uint8_t kSignedFlag = 1;
constexpr std::size_t kNeedMore = 0;

std::uint16_t checksumOf(const std::uint8_t* begin, std::size_t size, std::uint8_t seed) {
  return crcAdd(crcAdd(kCrcStart, begin, size), seed);
}

/// The header of either version.
struct Header {
  Frame frame;
  std::size_t size = 0;     // of the header
  std::size_t payload = 0;  // bytes
  std::size_t total = 0;
  bool understood = true;  // no flag that changes the format and is not known
};

Header headerOf(const std::uint8_t* b) {
  Header header;
  header.payload = b[1];
  Frame& frame = header.frame;
  if (b[0] == kMarkV1) {
    frame.version = 1;
    frame.sequence = b[2];
    frame.system = b[3];
    frame.component = b[4];
    frame.id = b[5];
    header.size = kHeaderV1;
  } else {
    frame.isSigned = (b[2] & kSignedFlag) != 0;
    header.understood = (b[2] & ~kSignedFlag) == 0;
    frame.sequence = b[4];
    frame.system = b[5];
    frame.component = b[6];
    frame.id = b[7] | static_cast<std::uint32_t>(b[8]) << 8 | static_cast<std::uint32_t>(b[9]) << 16;
    header.size = kHeaderV2;
  }
  header.total = header.size + header.payload + kChecksum + (frame.isSigned ? kSignature : 0);
  return header;
}

}  // namespace

std::vector<std::uint8_t> encodeFrame(const Frame& frame) {
  const MessageInfo* message = findMessage(frame.id);
  if (message == nullptr) return {};
  std::size_t size = std::min(frame.payload.size(), payloadSize(*message, true));
  while (size > 1 && frame.payload[size - 1] == 0) --size;
  std::vector<std::uint8_t> bytes = {kMarkV2,
                                     static_cast<std::uint8_t>(std::max<std::size_t>(size, 1)),
                                     0,
                                     0,
                                     frame.sequence,
                                     frame.system,
                                     frame.component,
                                     static_cast<std::uint8_t>(frame.id),
                                     static_cast<std::uint8_t>(frame.id >> 8),
                                     static_cast<std::uint8_t>(frame.id >> 16)};
  bytes.insert(bytes.end(), frame.payload.begin(), frame.payload.begin() + static_cast<std::ptrdiff_t>(size));
  if (size == 0) bytes.push_back(0);
  const std::uint16_t checksum = checksumOf(bytes.data() + 1, bytes.size() - 1, message->seed);
  bytes.push_back(static_cast<std::uint8_t>(checksum));
  bytes.push_back(static_cast<std::uint8_t>(checksum >> 8));
  return bytes;
}

void FrameReader::addBytes(const std::uint8_t* bytes, std::size_t size) {
  bytes_.insert(bytes_.end(), bytes, bytes + size);
  scan_(false);
}

void FrameReader::addDatagram(const std::uint8_t* bytes, std::size_t size) {
  bytes_.assign(bytes, bytes + size);
  inStep_ = true;
  scan_(true);
}

void FrameReader::scan_(bool complete) {
  std::size_t at = 0;
  while (at < bytes_.size()) {
    if (bytes_[at] != kMarkV1 && bytes_[at] != kMarkV2) {
      ++at;
      ++counts_.garbageBytes;
      inStep_ = false;
      continue;
    }
    const std::size_t taken = readOne_(at, complete);
    if (taken == kNeedMore) break;
    at += taken;
  }
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at));
}

/// Looks at what may be a frame. @return how many bytes are done with; kNeedMore: the frame is not complete yet
std::size_t FrameReader::readOne_(std::size_t at, bool complete) {
  const std::uint8_t* const b = bytes_.data() + at;
  const std::size_t left = bytes_.size() - at;
  const auto notAFrame = [&] {
    ++counts_.garbageBytes;
    inStep_ = false;
    return std::size_t{1};  // another frame may begin inside of it
  };
  if (left < (b[0] == kMarkV1 ? kHeaderV1 : kHeaderV2)) return complete ? notAFrame() : kNeedMore;
  Header header = headerOf(b);
  if (left < header.total) return complete ? notAFrame() : kNeedMore;
  const MessageInfo* const message = header.understood ? findMessage(header.frame.id) : nullptr;
  if (message == nullptr) {
    if (!inStep_) return notAFrame();
    ++counts_.unknown;
    return header.total;
  }
  const std::uint8_t* const end = b + header.size + header.payload;
  if (checksumOf(b + 1, header.size - 1 + header.payload, message->seed) != (end[0] | end[1] << 8)) {
    ++counts_.badChecksums;
    return notAFrame();
  }
  header.frame.payload.assign(b + header.size, end);
  frames_.push_back(std::move(header.frame));
  ++counts_.frames;
  inStep_ = true;
  return header.total;
}

bool FrameReader::next(Frame& frame) {
  if (frames_.empty()) return false;
  frame = std::move(frames_.front());
  frames_.pop_front();
  return true;
}

}  // namespace mavlink
