// The lines that frames travel over: UDP in both roles, TCP in both, a serial port. None of them waits.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mavlink/frame.h"

namespace host::link {

/// One line to one peer. Not thread-safe.
class Transport {
 public:
  virtual ~Transport() = default;

  /// Takes what has arrived from the configured peer; what others send is counted and dropped. Never waits.
  virtual void receive(std::vector<mavlink::Frame>& frames) = 0;

  /// Sends a frame, or drops it when the line does not take it now. Never waits.
  virtual void send(const std::vector<std::uint8_t>& bytes) = 0;

  virtual std::uint64_t strangers() const { return 0; }  ///< Packets or connections of others than the peer.
};

/// Opens a line.
/// @param address  one of
///   udp:[HOST:]PORT                     sends to HOST (default 127.0.0.1), hears only that address and port
///   udp-listen:[ADDRESS:]PORT[,PEER]    hears on ADDRESS (default 127.0.0.1) the first sender whose host is PEER
///                                       (default 127.0.0.1), until it has been silent for 10 s
///   tcp:HOST:PORT                       connects, and again when the connection ends
///   tcp-listen:[ADDRESS:]PORT[,PEER]    accepts one connection at a time, from PEER (default 127.0.0.1)
///   serial:DEVICE[:BAUD]                such as serial:/dev/ttyACM0:115200; default 57600
/// @throws HostError (Usage) for an address that is none; (Source) when the line cannot be opened
std::unique_ptr<Transport> openTransport(const std::string& address);

}  // namespace host::link
