// Frames as they travel: what is around a payload, and how frames are found in a stream of bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace mavlink {

/// One message on its way.
struct Frame {
  std::uint8_t version = 2;  ///< Of the frame's format, 1 or 2.
  std::uint8_t sequence = 0;
  std::uint8_t system = 0;
  std::uint8_t component = 0;
  std::uint32_t id = 0;
  bool isSigned = false;              ///< It came with a signature, which nobody here has checked.
  std::vector<std::uint8_t> payload;  ///< As it was sent: final zeros may be missing.
};

/// The bytes of a frame in version 2: final zeros of the payload are left out, but its first byte. Unsigned. Pure.
/// @return empty when the message is not in the table
std::vector<std::uint8_t> encodeFrame(const Frame& frame);

/// What a reader has seen so far.
struct ReaderCounts {
  std::uint64_t frames = 0;        ///< Good ones.
  std::uint64_t unknown = 0;       ///< Of messages that are not in the table: passed over, as they cannot be checked.
  std::uint64_t badChecksums = 0;  ///< Something that began like a frame and was none.
  std::uint64_t garbageBytes = 0;  ///< Bytes that belonged to no frame.
};

/// Finds frames of both versions in bytes that may be damaged. Keeps at most one frame's bytes. Not thread-safe.
class FrameReader {
 public:
  /// More bytes of a stream (serial line, TCP): a frame may go on in the next call.
  void addBytes(const std::uint8_t* bytes, std::size_t size);

  /// One datagram (UDP): a frame that is not complete in it never will be.
  void addDatagram(const std::uint8_t* bytes, std::size_t size);

  /// Takes the next good frame. @return false when there is none
  bool next(Frame& frame);

  const ReaderCounts& counts() const { return counts_; }

 private:
  void scan_(bool complete);
  std::size_t readOne_(std::size_t at, bool complete);

  std::vector<std::uint8_t> bytes_;  // not yet understood
  std::deque<Frame> frames_;
  ReaderCounts counts_;
  bool inStep_ = true;  // what came before was a frame, so the next byte begins one
};

}  // namespace mavlink
