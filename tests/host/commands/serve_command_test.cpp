// csrt-track serve as a whole: which sources it takes, who may steer it, what it refuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "input/y4m.h"
#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

/// The other end of --control. Waits as long as a slow machine may need.
class Operator {
 public:
  explicit Operator(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    for (int i = 0; i < 3000 && fd_ < 0; ++i) {
      fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) break;
      ::close(fd_);
      fd_ = -1;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  ~Operator() {
    if (fd_ >= 0) ::close(fd_);
  }
  Operator(const Operator&) = delete;
  Operator& operator=(const Operator&) = delete;

  Json ask(const std::string& command) {
    const std::string line = command + "\n";
    if (::write(fd_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) return {};
    std::string answer;
    for (char byte = 0; answer.empty() || answer.back() != '\n';) {
      pollfd ready{fd_, POLLIN, 0};
      if (::poll(&ready, 1, 30000) <= 0 || ::read(fd_, &byte, 1) != 1) return {};
      answer.push_back(byte);
    }
    return Json::parse(answer, nullptr, false);
  }

 private:
  int fd_ = -1;
};

/// A camera at the other end of a named pipe: a bright square that moves one pixel a frame.
class PipeCamera {
 public:
  explicit PipeCamera(std::string path) : path_(std::move(path)) {
    EXPECT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    thread_ = std::thread([this] { run_(); });
  }
  ~PipeCamera() {
    stop_ = true;
    const int reader = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // an open() that waits goes on
    thread_.join();
    if (reader >= 0) ::close(reader);
  }
  PipeCamera(const PipeCamera&) = delete;
  PipeCamera& operator=(const PipeCamera&) = delete;

 private:
  void run_() {
    const int fd = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    const std::string heading = host::y4mHeading({160, 120}, 25.0);
    bool good = ::write(fd, heading.data(), heading.size()) == static_cast<ssize_t>(heading.size());
    for (int i = 0; good && !stop_; ++i) {
      cv::Mat picture(120, 160, CV_8UC3, cv::Scalar(60, 70, 60));
      picture(cv::Rect(40 + i % 60, 50, 24, 20)).setTo(cv::Scalar(30, 220, 240));
      const std::vector<std::uint8_t> bytes = host::y4mFrame(picture, std::nullopt);
      for (std::size_t sent = 0; good && sent < bytes.size();) {
        const ssize_t count = ::write(fd, bytes.data() + sent, bytes.size() - sent);
        good = count > 0;
        if (good) sent += static_cast<std::size_t>(count);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::close(fd);
  }

  std::string path_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST(ServeCommand, NeedsSomebodyToServe) {
  const ProgramResult result = runProgram({"serve", "0"});
  expectOneSentence(result, 2, "who is to be served");
}

TEST(ServeCommand, NeedsOneSource) {
  expectOneSentence(runProgram({"serve", "--control", "-"}), 2, "one source is needed");
}

TEST(ServeCommand, RefusesWhatTrackRefuses) {
  const TempFolder folder;
  expectOneSentence(runProgram({"serve", folder.file("none.mp4"), "--control", "-"}), 3, "none.mp4");
  expectOneSentence(runProgram({"serve", "udp://nonsense", "--control", "-"}), 2, "nonsense");
  expectOneSentence(runProgram({"serve", "x.mp4", "--control", "-", "--engine", "steam"}), 2, "steam");
  expectOneSentence(runProgram({"serve", "x.mp4", "--control", "-", "--guard", "dog"}), 2, "dog");
  expectOneSentence(runProgram({"serve", "x.mp4", "--control", "-", "--pace", "gallop"}), 2, "gallop");
  expectOneSentence(runProgram({"serve", "x.mp4", "--control", "-", "--set", "no.such=1"}), 2, "no.such");
}

TEST(ServeCommand, APipeIsFollowedAsSomebodyChooses) {
  signal(SIGPIPE, SIG_IGN);
  const TempFolder folder;
  PipeCamera camera(folder.file("video"));
  Program serve({"serve", folder.file("video"), "--control", folder.file("control"), "--plugin", CSRT_FAKE_PLUGIN,
                 "--records", folder.file("records.jsonl")});
  Operator person(folder.file("control"));
  const Json before = person.ask("status");
  ASSERT_TRUE(before.is_object());
  EXPECT_TRUE(before["targets"].empty());
  const Json started = person.ask("box 40,50,24,20");
  EXPECT_EQ(started["ok"], true);
  // Until the target is followed, and a frame three before the newest is kept.
  const auto ready = [](const Json& status) {
    if (!status.is_object() || status["targets"].empty() || !status["targets"][0].contains("box")) return false;
    return status["frames_kept"][1].get<long>() - status["frames_kept"][0].get<long>() >= 3;
  };
  Json status;
  for (int i = 0; i < 500 && !ready(status); ++i) status = person.ask("status");
  const long kept = status["frames_kept"][0];
  const long newest = status["frames_kept"][1];
  const Json older = person.ask("box 40,50,24,20 frame=" + std::to_string(newest - 3));
  EXPECT_EQ(older["frame"], newest - 3);
  EXPECT_GE(older["caught_up"], 1);
  EXPECT_EQ(person.ask("box 40,50,24,20 frame=" + std::to_string(kept + 1000000))["ok"], false);
  EXPECT_EQ(person.ask("stop")["ok"], true);
  const ProgramResult result = serve.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  const std::vector<Json> records = recordsOf(textOf(folder.file("records.jsonl")));
  ASSERT_GE(records.size(), 2U);
  EXPECT_EQ(records[0]["call"], "init");
  EXPECT_EQ(records[1]["call"], "update");
  EXPECT_TRUE(records[1].contains("age_ms"));
}

TEST(ServeCommand, EveryFrameOfAClipIsJudgedWhenThePaceIsNotTheClips) {
  const TempFolder folder;
  const std::string clip = folder.file("clip.avi");
  ASSERT_EQ(runProgram({"draw-scene", clip, "--frames", "30"}).status, 0);
  const ProgramResult result = runProgram({"serve", clip, "--pace", "video", "--control", "-"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.err.find("served 30 frames, 0 were passed over"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace host_test
