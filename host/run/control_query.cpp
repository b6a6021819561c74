#include "run/control_query.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestAnswer = 64 * 1024;
constexpr int kLookAgainMs = 20;  // at a socket whose queue of connections is full

/// One question on its way. The file is open as long as there is something to wait for.
class Question {
 public:
  Question(const std::string& path, const std::string& line) : line_(line + "\n") {
    address_.sun_family = AF_UNIX;
    if (path.size() >= sizeof address_.sun_path) {
      end_(ControlReply::Kind::Failed, "the path is too long for a socket");
      return;
    }
    std::memcpy(address_.sun_path, path.c_str(), path.size() + 1);
    struct stat found {};
    if (stat(path.c_str(), &found) != 0) {
      end_(ControlReply::Kind::Failed, std::strerror(errno));
    } else if (!S_ISSOCK(found.st_mode)) {
      end_(ControlReply::Kind::Failed, "it is no socket");
    } else {
      file_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      if (file_ < 0) end_(ControlReply::Kind::Failed, std::strerror(errno));
      tryConnect_();
    }
  }
  ~Question() {
    if (file_ >= 0) close(file_);
  }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  bool isOver() const { return over_; }
  pollfd awaited() const { return {connected_ ? file_ : -1, POLLIN, 0}; }  // poll() passes over -1

  /// What can be done without waiting.
  void advance() {
    if (!over_ && !connected_) tryConnect_();
    if (!over_ && connected_) tryRead_();
  }

  ControlReply result(double limitS) {
    if (!over_) {
      end_(ControlReply::Kind::Silent,
           fmt::format("{} within {:g} s; it is starting, busy or hangs",
                       connected_ ? "it listens, but gave no answer" : "its queue is full, no answer", limitS));
    }
    return reply_;
  }

 private:
  void end_(ControlReply::Kind kind, const std::string& reason) {
    over_ = true;
    reply_.kind = kind;
    reply_.reason = reason;
  }

  void tryConnect_() {
    if (over_) return;
    if (connect(file_, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) != 0) {
      if (errno == EAGAIN || errno == EINTR) return;
      if (errno == ECONNREFUSED) {
        end_(ControlReply::Kind::Stale, "nobody listens there; its run ended without removing it");
      } else {
        end_(ControlReply::Kind::Failed, std::strerror(errno));
      }
      return;
    }
    connected_ = true;
    // A new connection's buffer takes so short a line at once.
    if (send(file_, line_.data(), line_.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line_.size())) {
      end_(ControlReply::Kind::Closed, "it closed the connection");
    }
  }

  void tryRead_() {
    char bytes[4096];
    while (true) {
      const ssize_t count = read(file_, bytes, sizeof bytes);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0 && errno == EAGAIN) return;
      if (count <= 0) return end_(ControlReply::Kind::Closed, "it closed the connection without an answer");
      reply_.line.append(bytes, static_cast<std::size_t>(count));
      const std::size_t end = reply_.line.find('\n');
      if (end != std::string::npos) {
        reply_.line.resize(end);
        return end_(ControlReply::Kind::Answered, "");
      }
      if (reply_.line.size() > kLongestAnswer) {
        reply_.line.clear();
        return end_(ControlReply::Kind::TooLong, "it sends without end; that is no control socket of this program");
      }
    }
  }

  std::string line_;
  sockaddr_un address_{};
  int file_ = -1;
  bool connected_ = false;
  bool over_ = false;
  ControlReply reply_;
};

}  // namespace

std::vector<ControlReply> askControls(const std::vector<std::string>& paths, const std::string& line, double limitS) {
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(limitS));
  std::vector<std::unique_ptr<Question>> questions;
  for (const std::string& path : paths) questions.push_back(std::make_unique<Question>(path, line));
  std::vector<pollfd> files;
  while (true) {
    files.clear();
    bool knocking = false;
    for (const auto& question : questions) {
      question->advance();
      if (question->isOver()) continue;
      files.push_back(question->awaited());
      knocking = knocking || files.back().fd < 0;
    }
    const double left = std::chrono::duration<double, std::milli>(end - Clock::now()).count();
    if (files.empty() || left <= 0.0) break;
    const int waitMs = static_cast<int>(std::ceil(left));
    poll(files.data(), files.size(), knocking ? std::min(waitMs, kLookAgainMs) : waitMs);
  }
  std::vector<ControlReply> replies;
  for (const auto& question : questions) replies.push_back(question->result(limitS));
  return replies;
}

}  // namespace host
