// Which kind of live source a text names.
#pragma once

#include <string>

namespace live {

/// What stands before "://", or what the source is without it.
enum class AddressKind {
  None,     ///< Not a live source: a file, a folder, a pattern, a camera's number.
  Rtsp,     ///< rtsp://, rtsps://
  Udp,      ///< udp://: MPEG-TS
  Rtp,      ///< rtp://HOST:PORT: H.264, or H.265 with ?codec=h265
  Sdp,      ///< A file that ends in .sdp
  Http,     ///< http://, https://: MJPEG or MPEG-TS
  Device,   ///< /dev/video0
  Stdin,    ///< "-": MPEG-TS or another stream on standard input
  Pipeline  ///< A GStreamer pipeline that ends in "appsink name=out"
};

struct Address {
  AddressKind kind = AddressKind::None;
  std::string text;   ///< As given: may hold a password.
  std::string host;   ///< Of udp and rtp; empty: all.
  int port = 0;       ///< Of udp and rtp.
  std::string codec;  ///< Of rtp: "H264" or "H265".
};

/// Reads an address; a pipeline is never guessed. Pure, any thread.
/// @param fault  set to a sentence where it is a live address and wrong; else left empty
Address parseAddress(const std::string& text, std::string& fault);

/// Whether reconnecting makes sense when it ends: cameras do come back, files and pipes do not. Pure.
bool comesBack(AddressKind kind);

/// The text with a password replaced by "***": for everything that is shown or written. Pure.
std::string withoutPassword(const std::string& text);

/// "RTSP", "UDP", ... for sentences. Pure.
const char* name(AddressKind kind);

}  // namespace live
