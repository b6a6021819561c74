// A client that sends exactly what a test wants sent, on loopback.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace host_test {

struct HttpAnswer {
  int status = 0;  ///< 0: none came.
  std::string head;
  std::string body;
};

class RawConnection {
 public:
  explicit RawConnection(int port) {
    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~RawConnection() {
    if (socket_ >= 0) ::close(socket_);
  }
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  void send(const std::string& text) const {
    std::size_t sent = 0;
    while (sent < text.size()) {
      const ssize_t now = ::send(socket_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
      if (now <= 0) return;  // the server has had enough
      sent += static_cast<std::size_t>(now);
    }
  }

  /// What comes until the server closes, `enough` bytes are there, or nothing comes for `limit_ms`.
  std::string receive(std::size_t enough = std::string::npos, int limit_ms = 15000) const {
    std::string all;
    pollfd waiting{socket_, POLLIN, 0};
    char buffer[16384];
    while (all.size() < enough && ::poll(&waiting, 1, limit_ms) > 0) {
      const ssize_t got = ::recv(socket_, buffer, sizeof buffer, 0);
      if (got <= 0) break;
      all.append(buffer, static_cast<std::size_t>(got));
    }
    return all;
  }

  /// One answer whose length is said.
  HttpAnswer answer() const {
    std::string all;
    std::size_t end = std::string::npos;
    while ((end = all.find("\r\n\r\n")) == std::string::npos) {
      const std::string more = receive(1);
      if (more.empty()) return {};
      all += more;
    }
    HttpAnswer answer{std::atoi(all.substr(9, 3).c_str()), all.substr(0, end + 2), all.substr(end + 4)};
    const std::size_t at = answer.head.find("Content-Length: ");
    if (at == std::string::npos) return answer;
    const auto length = static_cast<std::size_t>(std::atol(answer.head.c_str() + at + 16));
    while (answer.body.size() < length) {
      const std::string more = receive(length - answer.body.size());
      if (more.empty()) break;
      answer.body += more;
    }
    return answer;
  }

 private:
  int socket_ = -1;
};

inline HttpAnswer converse(int port, const std::string& request) {
  const RawConnection connection(port);
  connection.send(request);
  return connection.answer();
}

inline HttpAnswer get(int port, const std::string& path, const std::string& more = "") {
  return converse(port, "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + more + "\r\n");
}

inline std::string postText(const std::string& path, const std::string& body, const std::string& more = "") {
  return "POST " + path + " HTTP/1.1\r\nHost: localhost\r\nX-Csrt-Track: 1\r\nContent-Type: application/json\r\n" +
         "Content-Length: " + std::to_string(body.size()) + "\r\n" + more + "\r\n" + body;
}

inline HttpAnswer post(int port, const std::string& path, const std::string& body) {
  return converse(port, postText(path, body, "Connection: close\r\n"));
}

}  // namespace host_test
