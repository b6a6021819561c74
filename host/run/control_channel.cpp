#include "run/control_channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/host_error.h"

namespace host {
namespace {

constexpr std::size_t kMostPeers = 8;
constexpr std::size_t kLongestLine = 4096;

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw HostError(ExitCode::Usage, "--control '" + path + "': " + why);
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) refuse(path, "the path is too long for a socket");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

int newSocket() {
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

/// Makes room for a socket: what an ended run left is removed, anything else stays.
void clear(const std::string& path, const sockaddr_un& address) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) return;
  if (!S_ISSOCK(found.st_mode)) refuse(path, "there is a file of that name that is no socket");
  const int probe = newSocket();
  const bool answered = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  const int error = errno;
  close(probe);
  if (answered || error == EAGAIN) refuse(path, "another run takes its commands there");
  if (error == ECONNREFUSED) unlink(path.c_str());
}

}  // namespace

struct ControlChannel::Peer {
  Peer(int inFile, int outFile, bool ownsFiles) : in(inFile), out(outFile), owns(ownsFiles) {}
  ~Peer() {
    if (owns) ::close(in);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  void say(const std::string& text) const {
    const std::string line = text + "\n";
    // A reader that does not read loses its answers; the run does not wait for it.
    if (owns) {
      (void)!::send(out, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    } else {
      (void)!::write(out, line.data(), line.size());
    }
  }

  int in;
  int out;
  bool owns;
  bool tooLong = false;
  std::string pending;
};

ControlChannel::ControlChannel(const std::string& place) {
  if (place == "-") {
    peers_.push_back(std::make_shared<Peer>(STDIN_FILENO, STDERR_FILENO, false));
    return;
  }
  const sockaddr_un address = addressOf(place);
  clear(place, address);
  listening_ = newSocket();
  // The mode is set before the name exists: nobody else ever gets in.
  const bool made = listening_ >= 0 && fchmod(listening_, 0600) == 0 &&
                    bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  const int error = errno;
  if (!made || chmod(place.c_str(), 0600) != 0 || listen(listening_, static_cast<int>(kMostPeers)) != 0) {
    if (listening_ >= 0) ::close(listening_);
    refuse(place, std::string("a socket cannot be made there: ") + std::strerror(error));
  }
  path_ = place;
}

ControlChannel::~ControlChannel() {
  if (listening_ >= 0) ::close(listening_);
  if (!path_.empty()) unlink(path_.c_str());
}

void ControlChannel::accept_() {
  while (listening_ >= 0) {
    const int file = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (file < 0) return;
    if (peers_.size() >= kMostPeers) peers_.erase(peers_.begin());  // the oldest makes room
    peers_.push_back(std::make_shared<Peer>(file, file, true));
  }
}

/// False when the peer is gone.
bool ControlChannel::tryRead_(Peer& peer, std::vector<ControlLine>& lines, const std::shared_ptr<Peer>& self) {
  pollfd ready{peer.in, POLLIN, 0};
  if (poll(&ready, 1, 0) <= 0) return true;
  char bytes[kLongestLine];
  const ssize_t count = ::read(peer.in, bytes, sizeof bytes);
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  peer.pending.append(bytes, static_cast<std::size_t>(count));
  std::size_t begin = 0;
  for (std::size_t end = peer.pending.find('\n'); end != std::string::npos; end = peer.pending.find('\n', begin)) {
    if (!peer.tooLong)
      lines.push_back({peer.pending.substr(begin, end - begin), [self](const std::string& text) { self->say(text); }});
    peer.tooLong = false;
    begin = end + 1;
  }
  peer.pending.erase(0, begin);
  if (peer.pending.size() >= kLongestLine) {
    if (!peer.tooLong) peer.say("{\"ok\":false,\"error\":\"the line is too long\"}");
    peer.tooLong = true;
    peer.pending.clear();
  }
  return count > 0;
}

std::vector<ControlLine> ControlChannel::take() {
  accept_();
  std::vector<ControlLine> lines;
  peers_.erase(std::remove_if(peers_.begin(), peers_.end(),
                              [&lines](const std::shared_ptr<Peer>& peer) { return !tryRead_(*peer, lines, peer); }),
               peers_.end());
  return lines;
}

}  // namespace host
