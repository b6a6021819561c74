// Commands while running: what is a command, places in percent, the socket, and what a quota deletes.
#include "run/control_steering.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "base/host_error.h"
#include "run/record_folder.h"
#include "support/host_program.h"

namespace host {
namespace {

using Json = nlohmann::json;

bool isCommand(const std::string& line) {
  ControlCommand command;
  std::string fault;
  const bool good = tryReadCommand(line, command, fault);
  EXPECT_EQ(good, fault.empty()) << line;
  return good;
}

TEST(ControlCommandText, ReadsTheFourCommands) {
  ControlCommand command;
  std::string fault;
  ASSERT_TRUE(tryReadCommand("box 10%,20,5%,8 frame=12\r", command, fault));
  EXPECT_EQ(command.kind, ControlCommand::Kind::Box);
  EXPECT_EQ(command.frame, 12);
  const BBox box = boxIn(command.box, {200, 100});
  EXPECT_EQ(box.x, 20);
  EXPECT_EQ(box.y, 20);
  EXPECT_EQ(box.width, 10);
  EXPECT_EQ(box.height, 8);
  ASSERT_TRUE(tryReadCommand("  point 50%,12.5%", command, fault));
  EXPECT_EQ(pointIn(command.point, {640, 360}), cv::Point(320, 45));
  EXPECT_FALSE(command.frame);
  EXPECT_TRUE(isCommand("status"));
  EXPECT_TRUE(isCommand("stop"));
}

TEST(ControlCommandText, RefusesEverythingElse) {
  for (const char* line : {"",
                           "hm",
                           "box",
                           "box 1,2,3",
                           "box 1,2,3,4,5",
                           "box 1,2,0,4",
                           "box 1,2,3,4 frame=",
                           "box 1,2,3,4 frame=-1",
                           "box 1,2,3,4 frame=1x",
                           "box 1,2,3,4 7",
                           "point 1",
                           "point 1,2,3",
                           "point 1%%,2",
                           "status 1",
                           "stop now",
                           "box 1e3,2,3,4",
                           "box 1.5,2,3,4",
                           "point %,1",
                           "box 99999999999,1,2,3",
                           "box 1,2,3,4 frame=1 more"}) {
    EXPECT_FALSE(isCommand(line)) << line;
  }
}

/// A link to a control socket, and the lines that come back.
class Link {
 public:
  explicit Link(const std::string& path) : file_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    connected_ = connect(file_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~Link() { close(file_); }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  bool connected() const { return connected_; }
  void say(const std::string& text) const { EXPECT_EQ(write(file_, text.data(), text.size()), long(text.size())); }
  std::string heard() const {
    char bytes[4096];
    const ssize_t count = recv(file_, bytes, sizeof bytes, MSG_DONTWAIT);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "";
  }

 private:
  int file_;
  bool connected_ = false;
};

TEST(ControlSocket, IsItsOwnersAloneAndGoesAway) {
  const host_test::TempFolder folder;
  const std::string path = folder.file("control");
  {
    ControlChannel channel(path);
    struct stat found {};
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600U);
    EXPECT_THROW(ControlChannel second(path), HostError) << "another run listens there";
  }
  EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST(ControlSocket, ReplacesWhatAnEndedRunLeftAndNothingElse) {
  const host_test::TempFolder folder;
  const std::string path = folder.file("control");
  const int left = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(left, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(left);
  EXPECT_NO_THROW(ControlChannel channel(path));
  const std::string file = folder.file("notes.txt");
  host_test::writeText(file, "mine");
  EXPECT_THROW(ControlChannel channel(file), HostError);
  EXPECT_EQ(host_test::textOf(file), "mine");
  EXPECT_THROW(ControlChannel channel(folder.file("no/such/folder")), HostError);
  EXPECT_THROW(ControlChannel channel(folder.file(std::string(200, 'x'))), HostError);
}

TEST(ControlSocket, HandsOutWholeLinesAndEndlessOnesAreRefused) {
  const host_test::TempFolder folder;
  ControlChannel channel(folder.file("control"));
  const Link link(folder.file("control"));
  ASSERT_TRUE(link.connected());
  EXPECT_TRUE(channel.take().empty()) << "nothing came, and nobody waits";
  link.say("sta");
  EXPECT_TRUE(channel.take().empty());
  link.say("tus\nstop\n");
  const std::vector<ControlLine> lines = channel.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].text, "status");
  lines[1].answer("{}");
  EXPECT_EQ(link.heard(), "{}\n");
  link.say(std::string(4096, 'x'));
  EXPECT_TRUE(channel.take().empty());
  EXPECT_NE(link.heard().find("too long"), std::string::npos);
  link.say("the rest\nstatus\n");
  ASSERT_EQ(channel.take().size(), 1U) << "the long line is dropped to its end";
}

/// A source of three kept frames and a steering that listens on a socket.
class ControlSteeringTest : public ::testing::Test {
 protected:
  ControlSteeringTest()
      : path_(folder_.file("control")),
        steering_(
            path_,
            {[](long index) -> std::optional<SourceFrame> {
               if (index < 5 || index > 8) return std::nullopt;
               return frame(index);
             },
             [](long index) {
               std::vector<SourceFrame> later;
               for (long i = index + 1; i <= 9; ++i) later.push_back(frame(i));
               return later;
             },
             [] { return std::pair<long, long>(5, 9); }},
            [](std::size_t count, double) {
              return count == 0 ? std::vector<std::size_t>{} : std::vector<std::size_t>{count - 1};
            },
            nullptr),
        link_(path_) {}

  static SourceFrame frame(long index) {
    SourceFrame frame;
    frame.index = index;
    frame.bgr = cv::Mat(100, 200, CV_8UC3, cv::Scalar::all(90));
    return frame;
  }
  Json answer() const { return Json::parse(link_.heard(), nullptr, false); }

  host_test::TempFolder folder_;
  std::string path_;
  ControlSteering steering_;
  Link link_;
};

TEST_F(ControlSteeringTest, AnOldFrameIsTakenFromTheKeptOnesAndCaughtUpWith) {
  link_.say("box 1,2,30,40 frame=6\n");
  const Steering wish = steering_.after(frame(8), {});
  ASSERT_TRUE(wish.restart);
  EXPECT_EQ(wish.restart->width, 30);
  EXPECT_EQ(wish.on->index, 6);
  ASSERT_EQ(wish.catchUp.size(), 1U);
  EXPECT_EQ(wish.catchUp[0].index, 8) << "not beyond the frame in hand: the next one is read";
  CallRecord record;
  record.frame = 6;
  record.started = true;
  record.givenBox = cv::Rect(1, 2, 30, 40);
  steering_.restarted(record);
  const Json said = answer();
  EXPECT_TRUE(said["ok"]);
  EXPECT_EQ(said["frame"], 6);
  EXPECT_EQ(said["caught_up"], 1);
}

TEST_F(ControlSteeringTest, AFrameThatIsGoneIsRefusedAndTheRunGoesOn) {
  link_.say("box 1,2,30,40 frame=3\n");
  const Steering wish = steering_.after(frame(8), {});
  EXPECT_FALSE(wish.restart);
  EXPECT_FALSE(wish.stop);
  const Json said = answer();
  EXPECT_FALSE(said["ok"]);
  EXPECT_NE(said["error"].get<std::string>().find("kept are 5 to 9"), std::string::npos);
}

TEST_F(ControlSteeringTest, WithoutASignalTheLastPictureStillCounts) {
  SourceFrame nothing;
  nothing.index = 8;
  nothing.noSignal = true;
  link_.say("status\nbox 1,2,30,40\n");
  const Steering wish = steering_.after(nothing, {});
  ASSERT_TRUE(wish.restart);
  EXPECT_EQ(wish.on->index, 8);
  EXPECT_TRUE(answer()["no_signal"]);
}

TEST_F(ControlSteeringTest, OneRestartAtATimeAndStopEnds) {
  link_.say("box 1,2,30,40\nbox 5,6,30,40\nstop\n");
  EXPECT_EQ(steering_.after(frame(8), {}).restart->x, 1);
  steering_.restarted({});
  EXPECT_EQ(steering_.after(frame(9), {}).restart->x, 5);
  steering_.restarted({});
  EXPECT_TRUE(steering_.after(frame(9), {}).stop);
}

TEST(RecordQuota, TheOldestGoAndTheNewestStays) {
  const std::vector<KeptFile> files = {{"b", 40}, {"a", 30}, {"c", 50}};
  EXPECT_EQ(filesToDelete(files, 120), std::vector<std::string>{});
  EXPECT_EQ(filesToDelete(files, 119), std::vector<std::string>{"a"});
  EXPECT_EQ(filesToDelete(files, 50), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(filesToDelete(files, 1), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(filesToDelete({}, 1), std::vector<std::string>{});
}

TEST(RecordQuota, ReadsSizes) {
  EXPECT_EQ(bytesOf("500"), 500U);
  EXPECT_EQ(bytesOf("20G"), 20000000000U);
  for (const char* text : {"", "G", "-1", "0", "1.5G", "1g", "10 G", "99999999999T"})
    EXPECT_EQ(bytesOf(text), 0U) << text;
}

TEST(RecordQuota, OtherFilesInTheFolderAreLeftAlone) {
  const host_test::TempFolder folder;
  host_test::writeText(folder.file("holiday.mkv"), std::string(5000, 'x'));
  host_test::writeText(folder.file("csrt-20200101-000000-000000.mkv"), std::string(5000, 'x'));
  host_test::writeText(folder.file("csrt-20200101-000001-000001.mkv"), std::string(5000, 'x'));
  const std::string path = folder.file("");
  RecordFolder records(path, 6000);
  RunInfo info;
  info.frameSize = {64, 48};
  info.fps = 25;
  records.begin(info);
  SourceFrame frame;
  frame.bgr = cv::Mat(48, 64, CV_8UC3, cv::Scalar::all(9));
  records.frame(frame, {});
  records.end();
  EXPECT_EQ(access(folder.file("holiday.mkv").c_str(), F_OK), 0);
  EXPECT_NE(access(folder.file("csrt-20200101-000000-000000.mkv").c_str(), F_OK), 0) << "the oldest goes";
  EXPECT_EQ(access(folder.file("csrt-20200101-000001-000001.mkv").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace host
