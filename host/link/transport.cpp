#include "link/transport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include "base/host_error.h"

namespace host::link {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPeerSilence = std::chrono::seconds(10);
constexpr auto kReconnect = std::chrono::seconds(1);
constexpr std::size_t kMostAtOnce = 64;  // packets of one receive(), so that a flood cannot hold the caller

[[noreturn]] void failUsage(const std::string& address, const std::string& why) {
  throw HostError(ExitCode::Usage, "'" + address + "' is no MAVLink line: " + why);
}

[[noreturn]] void failOpen(const std::string& address) {
  throw HostError(ExitCode::Source, "the MAVLink line '" + address + "' cannot be opened: " + std::strerror(errno));
}

/// Closes what it owns.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  void reset(int fd) {
    close();
    fd_ = fd;
  }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }

 private:
  int fd_;
};

std::uint16_t portOf(const std::string& text, const std::string& address) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
    failUsage(address, "'" + text + "' is no port");
  }
  const int port = std::stoi(text);
  if (port < 1 || port > 65535) failUsage(address, "'" + text + "' is no port");
  return static_cast<std::uint16_t>(port);
}

in_addr hostOf(const std::string& name, const std::string& address) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  addrinfo* found = nullptr;
  if (getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
    failUsage(address, "the host '" + name + "' is not known");
  }
  const in_addr host = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
  freeaddrinfo(found);
  return host;
}

/// [HOST:]PORT
sockaddr_in endpointOf(const std::string& text, const std::string& address) {
  const std::size_t colon = text.rfind(':');
  const std::string host = colon == std::string::npos ? "127.0.0.1" : text.substr(0, colon);
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(portOf(colon == std::string::npos ? text : text.substr(colon + 1), address));
  endpoint.sin_addr = hostOf(host, address);
  return endpoint;
}

/// What stands before and after the comma, if there is one.
std::pair<std::string, std::string> atComma(const std::string& text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) return {text, "127.0.0.1"};
  return {text.substr(0, comma), text.substr(comma + 1)};
}

bool same(const sockaddr_in& a, const sockaddr_in& b) {
  return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

const sockaddr* generic(const sockaddr_in& endpoint) {
  return reinterpret_cast<const sockaddr*>(&endpoint);
}

int newSocket(int type, const std::string& address) {
  const int fd = ::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) failOpen(address);
  return fd;
}

void moveFrames(mavlink::FrameReader& reader, std::vector<mavlink::Frame>& frames) {
  for (mavlink::Frame frame; reader.next(frame);) frames.push_back(std::move(frame));
}

class Udp : public Transport {
 public:
  Udp(const std::string& rest, bool listens, const std::string& address)
      : socket_(newSocket(SOCK_DGRAM, address)), listens_(listens) {
    if (!listens) {
      peer_ = endpointOf(rest, address);
      return;
    }
    const auto [own, peer] = atComma(rest);
    allowed_ = hostOf(peer, address);
    const sockaddr_in endpoint = endpointOf(own, address);
    if (::bind(socket_.get(), generic(endpoint), sizeof endpoint) != 0) failOpen(address);
  }

  void receive(std::vector<mavlink::Frame>& frames) override {
    std::uint8_t bytes[2048];
    for (std::size_t i = 0; i < kMostAtOnce; ++i) {
      sockaddr_in from{};
      socklen_t size = sizeof from;
      const ssize_t got = ::recvfrom(socket_.get(), bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&from), &size);
      if (got < 0) {
        if (errno == EINTR || errno == ECONNREFUSED) continue;  // the peer does not listen yet
        return;
      }
      if (!isPeer_(from)) {
        ++strangers_;
        continue;
      }
      reader_.addDatagram(bytes, static_cast<std::size_t>(got));
      moveFrames(reader_, frames);
    }
  }

  void send(const std::vector<std::uint8_t>& bytes) override {
    if (!peer_) return;
    (void)!::sendto(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL, generic(*peer_), sizeof *peer_);
  }

  std::uint64_t strangers() const override { return strangers_; }

 private:
  bool isPeer_(const sockaddr_in& from) {
    if (!listens_) return same(from, *peer_);
    if (from.sin_addr.s_addr != allowed_.s_addr) return false;
    const auto now = Clock::now();
    if (peer_ && !same(from, *peer_) && now - heard_ < kPeerSilence) return false;
    peer_ = from;
    heard_ = now;
    return true;
  }

  Descriptor socket_;
  bool listens_;
  in_addr allowed_{};
  std::optional<sockaddr_in> peer_;
  Clock::time_point heard_;
  std::uint64_t strangers_ = 0;
  mavlink::FrameReader reader_;
};

/// Bytes in order, to one peer; what is not taken at once waits a little and is dropped whole when it gets too much.
class Stream : public Transport {
 public:
  void receive(std::vector<mavlink::Frame>& frames) override {
    if (!ready_()) return;
    std::uint8_t bytes[4096];
    for (std::size_t i = 0; i < kMostAtOnce; ++i) {
      const ssize_t got = ::read(line_.get(), bytes, sizeof bytes);
      if (got > 0) {
        reader_.addBytes(bytes, static_cast<std::size_t>(got));
        moveFrames(reader_, frames);
        continue;
      }
      if (got < 0 && errno == EINTR) continue;
      if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
      ended_(got == 0);
      return;
    }
  }

  void send(const std::vector<std::uint8_t>& bytes) override {
    if (!ready_()) return;
    constexpr std::size_t kMostWaiting = 16384;
    if (waiting_.size() < kMostWaiting) waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
    const ssize_t sent = write_(waiting_);
    if (sent > 0) waiting_.erase(waiting_.begin(), waiting_.begin() + sent);
    if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) ended_(false);
  }

 protected:
  virtual bool ready_() = 0;
  virtual void ended_(bool orderly) = 0;
  virtual ssize_t write_(const std::vector<std::uint8_t>& bytes) {
    return ::send(line_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  void begin_(int fd) {
    line_.reset(fd);
    reader_ = {};
    waiting_.clear();
  }

  Descriptor line_;

 private:
  mavlink::FrameReader reader_;
  std::vector<std::uint8_t> waiting_;
};

class TcpClient : public Stream {
 public:
  TcpClient(const std::string& rest, const std::string& address)
      : address_(address), peer_(endpointOf(rest, address)) {}

 private:
  bool ready_() override {
    const auto now = Clock::now();
    if (!line_.isOpen() && now >= next_) {
      next_ = now + kReconnect;
      begin_(newSocket(SOCK_STREAM, address_));
      connected_ = ::connect(line_.get(), generic(peer_), sizeof peer_) == 0;
      if (!connected_ && errno != EINPROGRESS) line_.close();
    }
    if (!line_.isOpen() || connected_) return connected_;
    pollfd wait{line_.get(), POLLOUT, 0};
    if (::poll(&wait, 1, 0) <= 0) return false;
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(line_.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
      line_.close();
      return false;
    }
    const int on = 1;
    ::setsockopt(line_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return connected_ = true;
  }
  void ended_(bool) override {
    line_.close();
    connected_ = false;
  }

  std::string address_;
  sockaddr_in peer_;
  bool connected_ = false;
  Clock::time_point next_;
};

class TcpServer : public Stream {
 public:
  TcpServer(const std::string& rest, const std::string& address) : door_(newSocket(SOCK_STREAM, address)) {
    const auto [own, peer] = atComma(rest);
    allowed_ = hostOf(peer, address);
    const sockaddr_in endpoint = endpointOf(own, address);
    const int on = 1;
    ::setsockopt(door_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(door_.get(), generic(endpoint), sizeof endpoint) != 0 || ::listen(door_.get(), 4) != 0) {
      failOpen(address);
    }
  }

  std::uint64_t strangers() const override { return strangers_; }

 private:
  bool ready_() override {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const int fd = ::accept4(door_.get(), reinterpret_cast<sockaddr*>(&from), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0 && (line_.isOpen() || from.sin_addr.s_addr != allowed_.s_addr)) {
      ::close(fd);
      ++strangers_;
    } else if (fd >= 0) {
      const int on = 1;
      ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      begin_(fd);
    }
    return line_.isOpen();
  }
  void ended_(bool) override { line_.close(); }

  Descriptor door_;
  in_addr allowed_{};
  std::uint64_t strangers_ = 0;
};

class Serial : public Stream {
 public:
  Serial(const std::string& rest, const std::string& address) {
    const std::size_t colon = rest.rfind(':');
    device_ = rest.substr(0, colon);
    const std::string baud = colon == std::string::npos ? "57600" : rest.substr(colon + 1);
    for (const auto& [name, speed] : {std::pair<const char*, speed_t>{"9600", B9600},
                                      {"19200", B19200},
                                      {"38400", B38400},
                                      {"57600", B57600},
                                      {"115200", B115200},
                                      {"230400", B230400},
                                      {"460800", B460800},
                                      {"921600", B921600},
                                      {"1500000", B1500000}}) {
      if (baud == name) speed_ = speed;
    }
    if (device_.empty()) failUsage(address, "the device is missing");
    if (speed_ == B0) failUsage(address, "'" + baud + "' is no speed of a serial line");
    if (!open_()) failOpen(address);
  }

 private:
  bool open_() {
    begin_(::open(device_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    termios settings{};
    if (!line_.isOpen()) return false;
    if (::tcgetattr(line_.get(), &settings) != 0) {
      const int why = errno;
      line_.close();
      errno = why;
      return false;
    }
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    ::cfsetispeed(&settings, speed_);
    ::cfsetospeed(&settings, speed_);
    return ::tcsetattr(line_.get(), TCSANOW, &settings) == 0;
  }
  bool ready_() override {
    const auto now = Clock::now();
    if (!line_.isOpen() && now >= next_) {
      next_ = now + kReconnect;
      open_();
    }
    return line_.isOpen();
  }
  void ended_(bool orderly) override {
    if (orderly) return;  // nothing there is not the end of a serial line
    line_.close();        // unplugged: it may come back
    next_ = Clock::now() + kReconnect;
  }
  ssize_t write_(const std::vector<std::uint8_t>& bytes) override {
    return ::write(line_.get(), bytes.data(), bytes.size());
  }

  std::string device_;
  speed_t speed_ = B0;
  Clock::time_point next_;
};

}  // namespace

std::unique_ptr<Transport> openTransport(const std::string& address) {
  const std::size_t colon = address.find(':');
  if (colon == std::string::npos)
    failUsage(address, "it must begin with udp:, udp-listen:, tcp:, tcp-listen: or serial:");
  const std::string kind = address.substr(0, colon);
  const std::string rest = address.substr(colon + 1);
  if (kind == "udp" || kind == "udp-listen") return std::make_unique<Udp>(rest, kind != "udp", address);
  if (kind == "tcp") return std::make_unique<TcpClient>(rest, address);
  if (kind == "tcp-listen") return std::make_unique<TcpServer>(rest, address);
  if (kind == "serial") return std::make_unique<Serial>(rest, address);
  failUsage(address, "it must begin with udp:, udp-listen:, tcp:, tcp-listen: or serial:");
}

}  // namespace host::link
