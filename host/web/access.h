// Who may ask the page's server for what. No sockets here: a request goes in as text, a verdict comes out.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace host::web {

/// Where the server listens.
struct ListenAddress {
  std::string host;       ///< A name or a number, IPv6 without brackets.
  int port = 0;           ///< 0: any free one.
  bool loopback = false;  ///< Nobody but this machine can reach it.
};

/// Reads "127.0.0.1:8080", "localhost:8080", "[::1]:8080", "0.0.0.0:8080" or "8080", which means loopback.
/// @throws HostError (Usage) naming the text
ListenAddress listenAddressOf(const std::string& text);

/// "HOST:PORT" as an address has it, IPv6 in brackets. Pure.
std::string addressText(const std::string& host, int port);

/// Takes the same time whatever the texts are and wherever they differ: compares digests of both.
bool sameSecret(const std::string& a, const std::string& b);

/// So many things at once, and so many a second from then on. Times are seconds of one clock that never goes back.
class Allowance {
 public:
  Allowance(double burst, double perSecond) : burst_(burst), perSecond_(perSecond), left_(burst) {}
  /// Whether one is left; nothing is taken.
  bool has(double now);
  /// Takes one. False when none is left.
  bool take(double now);

 private:
  double burst_;
  double perSecond_;
  double left_;
  double at_ = 0.0;
  bool begun_ = false;
};

/// What of a request decides whether it is answered.
struct Asked {
  std::string peer;           ///< The address it comes from.
  std::string method;         ///< GET, POST, ...
  std::string host;           ///< Header Host; empty: missing.
  std::string origin;         ///< Header Origin; empty: none.
  std::string authorization;  ///< Header Authorization; empty: none.
  bool marked = false;        ///< Has the header that no form of another site can send.
};

/// 200: go on. Else the status to refuse with and one sentence.
struct AccessVerdict {
  int status = 200;  ///< HTTP status; 200: allowed.
  std::string why;   ///< One sentence for the other end; empty: allowed.
};

/// The header that everything but GET and HEAD must carry.
inline constexpr const char* kMarkHeader = "X-Csrt-Track";

/// Shortest token, characters.
inline constexpr std::size_t kShortestToken = 16;

/// Threads: judge() from any.
class Access {
 public:
  /// @param token  empty: none is asked for
  /// @param names  host names under which the server is reached beside its own, such as a reverse proxy's
  Access(const ListenAddress& address, std::string token, const std::vector<std::string>& names);

  /// Foreign host or origin: 403. No or a wrong token: 401; after ten wrong ones from an address, one a second: 429.
  /// No mark: 403. More than the address may ask: 429. @param now  seconds of a clock that never goes back
  AccessVerdict judge(const Asked& asked, double now);

 private:
  struct Peer {
    Allowance wrongTokens{10, 1};
    Allowance orders{40, 20};
    Allowance questions{1200, 600};
    double at = 0.0;
  };
  bool knowsHost_(const std::string& host) const;
  bool hasToken_(const std::string& authorization) const;
  Peer& peer_(const std::string& address, double now);

  bool loopback_;
  std::string token_;
  std::vector<std::string> names_;
  std::mutex mutex_;
  std::map<std::string, Peer> peers_;
};

}  // namespace host::web
