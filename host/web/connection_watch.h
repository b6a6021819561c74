// Ends connections that are held without being used: the library gives a thread to each, and waits for every byte anew.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace host::web {

/// A connection that the server has accepted.
struct Accepted {
  int socket = -1;
  std::pair<std::string, int> peer;  ///< Address and port of the other end.
};

/// This process's sockets that were accepted on a local port, as the system lists them.
std::vector<Accepted> acceptedOn(int port);

/// What is known about one connection. Times are seconds of a clock that never goes back.
struct ConnectionUse {
  double since = 0.0;   ///< When the request under way began, else when the last one ended or the connection was seen.
  bool asking = false;  ///< A request's head has come and its answer has not gone.
  bool stream = false;  ///< The answer goes on for as long as somebody listens.
  bool spoilt = false;  ///< What comes on it is no longer told apart: a body was left unread.
};

inline constexpr double kLongestSilence_s = 12.0;  ///< Without a request's whole head.
inline constexpr double kLongestRequest_s = 60.0;  ///< From its head to the end of its answer, but for streams.

/// Whether a connection has been held for too long. Pure.
bool isOverdue(const ConnectionUse& use, double now);

/// Looks once a second. Threads: all calls from any thread.
class ConnectionWatch {
 public:
  ~ConnectionWatch() { end(); }
  /// @param port  the local port of the server
  void begin(int port);
  /// Ends all connections, and the watch: those that are kept for later at once, the others when their answer has gone
  /// or after two seconds.
  void end();

  /// The head of a request has come. @return false when the connection is spoilt: whatever this is, it is no request
  bool asked(const std::string& address, int port, bool stream);
  /// A request is refused without its body being read: nothing more is taken from the connection.
  void spoil(const std::string& address, int port);
  /// The answer has gone; a spoilt connection ends.
  void answered(const std::string& address, int port);

 private:
  void watch_();
  bool endIdle_();
  void look_Locked_(double now);

  int port_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::pair<std::string, int>, ConnectionUse> uses_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace host::web
