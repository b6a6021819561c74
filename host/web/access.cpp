#include "web/access.h"

#include <arpa/inet.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "base/host_error.h"

namespace host::web {
namespace {

constexpr std::size_t kMostPeers = 512;

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool isIpv4(const std::string& host) {
  in_addr address{};
  return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

bool isIpv6(const std::string& host) {
  in6_addr address{};
  return inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "::1" || (isIpv4(host) && host.compare(0, 4, "127.") == 0);
}

bool tryReadPort(const std::string& text, int& port) {
  const char* const end = text.data() + text.size();
  const auto [at, failed] = std::from_chars(text.data(), end, port);
  return failed == std::errc() && at == end && port >= 0 && port <= 65535;
}

/// The host of "name:port", "[::1]:port" or a bare host; empty where the text is neither.
std::string hostOf(const std::string& authority) {
  if (authority.empty()) return {};
  std::string host;
  std::string rest;
  if (authority.front() == '[') {
    const std::size_t end = authority.find(']');
    if (end == std::string::npos) return {};
    host = authority.substr(1, end - 1);
    rest = authority.substr(end + 1);
    if (!isIpv6(host)) return {};
  } else {
    const std::size_t colon = authority.find(':');
    host = authority.substr(0, colon);
    rest = colon == std::string::npos ? "" : authority.substr(colon);
  }
  int port = 0;
  if (!rest.empty() && (rest.front() != ':' || !tryReadPort(rest.substr(1), port))) return {};
  host = lower(host);
  if (!host.empty() && host.back() == '.') host.pop_back();
  return host;
}

std::array<unsigned char, 32> digestOf(const std::string& text) {
  std::array<unsigned char, 32> digest{};
  unsigned length = 0;
  EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr);
  return digest;
}

/// What stands in "Basic BASE64" as the password; empty where it is none.
std::string passwordOf(const std::string& base64) {
  if (base64.empty() || base64.size() % 4 != 0 || base64.size() > 4096) return {};
  std::string text(base64.size() / 4 * 3, '\0');
  const int length =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(base64.data()), static_cast<int>(base64.size()));
  if (length < 0) return {};
  const std::size_t padding = base64.size() - 1 - base64.find_last_not_of('=');
  text.resize(static_cast<std::size_t>(length) - std::min<std::size_t>(padding, 2));
  const std::size_t colon = text.find(':');
  return colon == std::string::npos ? "" : text.substr(colon + 1);
}

std::string machineName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? lower(name.data()) : "";
}

}  // namespace

ListenAddress listenAddressOf(const std::string& text) {
  const auto refuse = [&text]() -> HostError {
    return {ExitCode::Usage, "--http '" + text + "' is not of the form ADDRESS:PORT, such as 127.0.0.1:8080"};
  };
  ListenAddress address;
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) {
    address.host = "127.0.0.1";
    if (text.empty() || !tryReadPort(text, address.port)) throw refuse();
  } else {
    if (!tryReadPort(text.substr(colon + 1), address.port)) throw refuse();
    address.host = hostOf(text);
    const bool named = !address.host.empty() &&
                       address.host.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-") == std::string::npos;
    if (!named && !isIpv6(address.host)) throw refuse();
  }
  address.loopback = isLoopback(address.host);
  return address;
}

std::string addressText(const std::string& host, int port) {
  return (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" + std::to_string(port);
}

bool sameSecret(const std::string& a, const std::string& b) {
  const auto left = digestOf(a);
  const auto right = digestOf(b);
  return CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

bool Allowance::has(double now) {
  if (begun_) left_ = std::min(burst_, left_ + std::max(0.0, now - at_) * perSecond_);
  begun_ = true;
  at_ = now;
  return left_ >= 1.0;
}

bool Allowance::take(double now) {
  if (!has(now)) return false;
  left_ -= 1.0;
  return true;
}

Access::Access(const ListenAddress& address, std::string token, const std::vector<std::string>& names)
    : loopback_(address.loopback), token_(std::move(token)), names_{"localhost", address.host} {
  for (const std::string& name : names) names_.push_back(lower(name));
  if (!loopback_) {
    const std::string machine = machineName();
    names_.push_back(machine);
    names_.push_back(machine + ".local");
  }
}

/// A page of another site whose name was made to lead here still says its own name. A number is no such name.
bool Access::knowsHost_(const std::string& authority) const {
  const std::string host = hostOf(authority);
  if (host.empty()) return false;
  if (std::find(names_.begin(), names_.end(), host) != names_.end()) return true;
  return loopback_ ? isLoopback(host) : isIpv4(host) || isIpv6(host);
}

bool Access::hasToken_(const std::string& authorization) const {
  const std::size_t space = authorization.find(' ');
  if (space == std::string::npos) return false;
  const std::string scheme = lower(authorization.substr(0, space));
  const std::string rest = authorization.substr(space + 1);
  if (scheme == "bearer") return sameSecret(rest, token_);
  return scheme == "basic" && sameSecret(passwordOf(rest), token_);
}

Access::Peer& Access::peer_(const std::string& address, double now) {
  if (peers_.size() >= kMostPeers && peers_.count(address) == 0) {
    const auto oldest = std::min_element(peers_.begin(), peers_.end(),
                                         [](const auto& a, const auto& b) { return a.second.at < b.second.at; });
    peers_.erase(oldest);
  }
  Peer& peer = peers_[address];
  peer.at = now;
  return peer;
}

AccessVerdict Access::judge(const Asked& asked, double now) {
  if (!knowsHost_(asked.host)) return {403, "this server does not go by that host name; see --http-name"};
  if (!asked.origin.empty()) {
    const std::size_t scheme = asked.origin.find("://");
    if (scheme == std::string::npos || !knowsHost_(asked.origin.substr(scheme + 3))) {
      return {403, "pages of other sites may not ask this server"};
    }
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  Peer& peer = peer_(asked.peer, now);
  if (!token_.empty()) {
    if (!peer.wrongTokens.has(now)) return {429, "too many wrong tokens; try again in a second"};
    if (!hasToken_(asked.authorization)) {
      if (!asked.authorization.empty()) peer.wrongTokens.take(now);
      return {401, "the token is missing or wrong"};
    }
  }
  const bool order = asked.method != "GET" && asked.method != "HEAD";
  if (order && !asked.marked) return {403, std::string("the header ") + kMarkHeader + " is missing"};
  if (!(order ? peer.orders : peer.questions).take(now)) return {429, "too many requests; wait a second"};
  return {};
}

}  // namespace host::web
