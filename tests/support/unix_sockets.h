// Sockets as programs that went wrong leave or serve them.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>

namespace host_test {

/// A socket with a name; nobody accepts unless serve() was called.
class NamedSocket {
 public:
  /// @param listens  false: as a run that was killed leaves it
  NamedSocket(const std::string& path, bool listens) : file_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(bind(file_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << path;
    EXPECT_TRUE(!listens || listen(file_, 1) == 0) << path;
  }
  ~NamedSocket() {
    shutdown(file_, SHUT_RDWR);  // ends a server that waits
    if (server_.joinable()) server_.join();
    close(file_);
  }
  NamedSocket(const NamedSocket&) = delete;
  NamedSocket& operator=(const NamedSocket&) = delete;

  /// Takes one connection, reads what was asked, and hands the file over; it is closed afterwards.
  void serve(std::function<void(int)> answer) {
    server_ = std::thread([this, answer = std::move(answer)] {
      const int peer = accept(file_, nullptr, nullptr);
      if (peer < 0) return;
      char bytes[256];
      if (recv(peer, bytes, sizeof bytes, 0) > 0) answer(peer);
      close(peer);
    });
  }
  void serveText(const std::string& text) {
    serve([text](int peer) { (void)!send(peer, text.data(), text.size(), MSG_NOSIGNAL); });
  }

 private:
  int file_;
  std::thread server_;
};

}  // namespace host_test
