#include "web/connection_watch.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <chrono>
#include <filesystem>

#include "web/web_front.h"

namespace host::web {
namespace {

/// Address and port; an empty address for what is no such socket.
std::pair<std::string, int> endOf(int socket, bool other) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if ((other ? ::getpeername(socket, any, &length) : ::getsockname(socket, any, &length)) != 0) return {};
  if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return {};
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  if (::getnameinfo(any, length, host.data(), host.size(), port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV) !=
      0) {
    return {};
  }
  return {host.data(), std::atoi(port.data())};
}

}  // namespace

std::vector<Accepted> acceptedOn(int port) {
  std::vector<Accepted> all;
  std::error_code failed;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", failed)) {
    const std::string name = entry.path().filename().string();
    int socket = -1;
    if (std::from_chars(name.data(), name.data() + name.size(), socket).ec != std::errc()) continue;
    if (endOf(socket, false).second != port) continue;
    const std::pair<std::string, int> peer = endOf(socket, true);
    if (!peer.first.empty()) all.push_back({socket, peer});
  }
  return all;
}

bool isOverdue(const ConnectionUse& use, double now) {
  if (use.asking && use.stream) return false;
  return now - use.since > (use.asking ? kLongestRequest_s : kLongestSilence_s);
}

void ConnectionWatch::begin(int port) {
  port_ = port;
  thread_ = std::thread([this] { watch_(); });
}

void ConnectionWatch::end() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  if (!thread_.joinable()) return;
  thread_.join();
  for (int i = 0; i < 200 && endIdle_(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  for (const Accepted& accepted : acceptedOn(port_)) ::shutdown(accepted.socket, SHUT_RDWR);
}

/// @return whether answers are still under way
bool ConnectionWatch::endIdle_() {
  const std::lock_guard<std::mutex> lock(mutex_);
  bool busy = false;
  for (const Accepted& accepted : acceptedOn(port_)) {
    const auto known = uses_.find(accepted.peer);
    const bool asking = known != uses_.end() && known->second.asking;
    busy = busy || asking;
    if (!asking) ::shutdown(accepted.socket, SHUT_RDWR);
  }
  return busy;
}

bool ConnectionWatch::asked(const std::string& address, int port, bool stream) {
  const std::lock_guard<std::mutex> lock(mutex_);
  ConnectionUse& use = uses_[{address, port}];
  const bool spoilt = use.spoilt;
  use = {secondsNow(), true, stream, spoilt};
  return !spoilt;
}

void ConnectionWatch::spoil(const std::string& address, int port) {
  const std::lock_guard<std::mutex> lock(mutex_);
  uses_[{address, port}].spoilt = true;
}

void ConnectionWatch::answered(const std::string& address, int port) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ConnectionUse& use = uses_[{address, port}];
    use = {secondsNow(), false, false, use.spoilt};
    if (!use.spoilt) return;
  }
  for (const Accepted& accepted : acceptedOn(port_)) {
    if (accepted.peer == std::make_pair(address, port)) ::shutdown(accepted.socket, SHUT_RDWR);
  }
}

void ConnectionWatch::watch_() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!changed_.wait_for(lock, std::chrono::seconds(1), [this] { return ending_; })) look_Locked_(secondsNow());
}

void ConnectionWatch::look_Locked_(double now) {
  std::map<std::pair<std::string, int>, ConnectionUse> uses;
  for (const Accepted& accepted : acceptedOn(port_)) {
    const auto known = uses_.find(accepted.peer);
    const ConnectionUse use = known == uses_.end() ? ConnectionUse{now, false, false, false} : known->second;
    if (isOverdue(use, now)) ::shutdown(accepted.socket, SHUT_RDWR);
    uses[accepted.peer] = use;
  }
  uses_ = std::move(uses);  // those that are gone are forgotten
}

}  // namespace host::web
