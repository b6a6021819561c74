// What a live module offers: the seam between csrt-track and the libraries that receive streams. csrt-track links none
// of them; a module is a shared library of its own that is loaded when a live address is named (module.h).
// Plain C++ on both sides, built together: the version guards against a module of another build.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "live/address.h"

namespace live {

inline constexpr int kModuleVersion = 1;  ///< Program and module must have the same.
inline constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();  ///< A time that nobody said.

/// One decoded picture, 8-bit BGR. The bytes belong to the receiver until its next call.
struct ReceivedPicture {
  const std::uint8_t* bgr = nullptr;
  int width = 0;
  int height = 0;
  std::size_t stride = 0;           ///< Bytes from one row to the next.
  double streamS = kUnknown;        ///< The stream's own time stamp, seconds; begins anywhere.
  double capturedUnixS = kUnknown;  ///< When the sender says it was taken, seconds since 1970; NaN: it does not say.
  double heldS = 0.0;               ///< For how long it was already here: decoding, queues. Seconds, 0 or more.
};

/// One packet of what the camera said, as it came, with the stream's time stamp of it.
struct ReceivedPacket {
  std::vector<std::uint8_t> bytes;  ///< The packet as it came.
  double streamS = kUnknown;        ///< Seconds of the stream's own clock.
};

/// What came of one wait.
struct Received {
  /// What happened.
  enum class Event {
    Nothing,  ///< Neither picture nor end within the wait; packets may be there.
    Picture,
    Ended,  ///< The sender said that it is over.
    Failed  ///< It cannot go on; `reason` says why. Open anew, later.
  };
  Event event = Event::Nothing;
  ReceivedPicture picture;              ///< Of Event::Picture; valid until the next call.
  std::vector<ReceivedPacket> packets;  ///< What came meanwhile, in order.
  std::string reason;                   ///< One sentence without full stop, and without a password.
  bool refused = false;  ///< Failed because of the user's name or password: asking again soon locks accounts.
};

/// One connection. Used by one thread; made, used and destroyed there. Every call returns within its wait and 1 s.
class Receiver {
 public:
  virtual ~Receiver() = default;
  virtual Received next(double waitS) = 0;
  virtual std::string decoder() const = 0;  ///< The decoder in use; empty as long as it is not known.
  virtual long damaged() const = 0;         ///< Packets or pictures so far that could not be decoded or were lost.
};

/// Which source to open, and how.
struct ReceiverRequest {
  Address address;                          ///< What to open.
  bool overUdp = false;                     ///< RTSP: media over UDP rather than inside the RTSP connection.
  double connectLimitS = 10.0;              ///< Longest time until the stream is known.
  const std::atomic<bool>* stop = nullptr;  ///< Becomes true when all waiting is to end. Outlives the receiver.
};

/// Takes drawn pictures and sends them on. Used by one thread; `send` never waits for a receiver.
class Sender {
 public:
  virtual ~Sender() = default;
  /// @return false when it cannot go on; `fault()` says why
  virtual bool send(const std::uint8_t* bgr, int width, int height, std::size_t stride, double timeS) = 0;
  virtual std::string fault() const = 0;
};

/// Where the drawn picture is sent, and how.
struct SenderRequest {
  std::string address;  ///< rtsp://127.0.0.1:8554/track or udp://host:port; or the path of a .ts file.
  int width = 0;
  int height = 0;
  double fps = 25.0;
};

/// A file of video and what the camera said beside it (MPEG-TS).
class StreamFile {
 public:
  virtual ~StreamFile() = default;
  /// @param packet  bytes of a packet that belongs to the picture; empty: none
  virtual bool write(const std::uint8_t* bgr, std::size_t stride, const std::vector<std::uint8_t>& packet,
                     double timeS) = 0;
  virtual bool close() = 0;  ///< False when not all could be written.
  virtual std::string fault() const = 0;
};

/// A loaded module. Lives as long as the program; all calls from any thread.
class Module {
 public:
  virtual ~Module() = default;
  virtual const char* title() const = 0;  ///< Library and version, for `doctor`.
  virtual bool receives(AddressKind kind) const = 0;
  /// Never null: what cannot be opened fails in the receiver's next().
  virtual std::unique_ptr<Receiver> open(const ReceiverRequest& request) = 0;
  /// Null with `fault` set where it cannot be done.
  virtual std::unique_ptr<Sender> openSender(const SenderRequest& request, std::string& fault) = 0;
  virtual std::unique_ptr<StreamFile> createFile(const SenderRequest& request, std::string& fault) = 0;
  /// The decoders that would be taken for H.264, H.265 and JPEG, by rank; "h264: avdec_h264".
  virtual std::vector<std::string> decoders() const = 0;
};

}  // namespace live

/// What a module exports. Null for another version.
using CsrtLiveModuleEntry = live::Module* (*)(int version);
