#include "address.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>

namespace live {
namespace {

bool beginsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

struct Scheme {
  const char* head;
  AddressKind kind;
};

constexpr std::array<Scheme, 6> kSchemes = {{{"rtsp://", AddressKind::Rtsp},
                                             {"rtsps://", AddressKind::Rtsp},
                                             {"udp://", AddressKind::Udp},
                                             {"rtp://", AddressKind::Rtp},
                                             {"http://", AddressKind::Http},
                                             {"https://", AddressKind::Http}}};

/// The part between "://" (and an "@") and the next "/" or "?".
std::string hostAndPort(const std::string& text) {
  const std::size_t begin = text.find("://") + 3;
  const std::size_t end = std::min(text.find_first_of("/?", begin), text.size());
  const std::string all = text.substr(begin, end - begin);
  const std::size_t at = all.rfind('@');
  return at == std::string::npos ? all : all.substr(at + 1);
}

/// False where there is no port, or none between 1 and 65535.
bool tryPort(const std::string& text, int& port) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  port = std::stoi(text);
  return port >= 1 && port <= 65535;
}

void readHostAndPort(Address& address, std::string& fault) {
  const std::string place = hostAndPort(address.text);
  const std::size_t colon = place.rfind(':');
  const bool needsPort = address.kind == AddressKind::Udp || address.kind == AddressKind::Rtp;
  const bool hasPort = colon != std::string::npos && !endsWith(place, "]");
  address.host = hasPort ? place.substr(0, colon) : place;
  if (hasPort && !tryPort(place.substr(colon + 1), address.port)) {
    fault = "'" + withoutPassword(address.text) + "': '" + place.substr(colon + 1) + "' is not a port from 1 to 65535";
  } else if (!hasPort && needsPort) {
    fault = "'" + address.text + "' names no port, as in " + lowered(name(address.kind)) + "://127.0.0.1:5004";
  } else if (address.host.empty() && !needsPort) {
    fault = "'" + withoutPassword(address.text) + "' names no host";
  }
}

}  // namespace

Address parseAddress(const std::string& text, std::string& fault) {
  Address address;
  address.text = text;
  const std::string low = lowered(text);
  for (const Scheme& scheme : kSchemes) {
    if (beginsWith(low, scheme.head)) address.kind = scheme.kind;
  }
  if (address.kind != AddressKind::None) {
    readHostAndPort(address, fault);
    if (address.kind == AddressKind::Rtp) {
      address.codec = low.find("codec=h265") != std::string::npos ? "H265" : "H264";
    }
  } else if (text == "-") {
    address.kind = AddressKind::Stdin;
  } else if (beginsWith(text, "/dev/video")) {
    address.kind = AddressKind::Device;
  } else if (endsWith(low, ".sdp")) {
    address.kind = AddressKind::Sdp;
  }
  return address;
}

bool comesBack(AddressKind kind) {
  return kind != AddressKind::None && kind != AddressKind::Stdin && kind != AddressKind::Pipeline;
}

std::string withoutPassword(const std::string& text) {
  std::string shown = text;
  for (std::size_t scheme = shown.find("://"); scheme != std::string::npos; scheme = shown.find("://", scheme + 1)) {
    const std::size_t begin = scheme + 3;
    const std::size_t end = std::min(shown.find_first_of("/?# \"'", begin), shown.size());
    const std::size_t at = shown.rfind('@', end);
    const std::size_t colon = shown.find(':', begin);
    if (at == std::string::npos || at < begin || colon == std::string::npos || colon > at) continue;
    shown.replace(colon + 1, at - colon - 1, "***");
  }
  return shown;
}

const char* name(AddressKind kind) {
  switch (kind) {
    case AddressKind::None:
      return "file";
    case AddressKind::Rtsp:
      return "RTSP";
    case AddressKind::Udp:
      return "UDP";
    case AddressKind::Rtp:
      return "RTP";
    case AddressKind::Sdp:
      return "SDP";
    case AddressKind::Http:
      return "HTTP";
    case AddressKind::Device:
      return "camera";
    case AddressKind::Stdin:
      return "standard input";
    case AddressKind::Pipeline:
      return "GStreamer pipeline";
  }
  return "";
}

}  // namespace live
