// Asking control sockets: healthy ones, and every way in which one can be broken. None may hold up the others.
#include "run/control_query.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/host_program.h"
#include "support/unix_sockets.h"

namespace host {
namespace {

using Kind = ControlReply::Kind;
using host_test::NamedSocket;

constexpr double kAmple = 30.0;  // of what answers at once
constexpr double kShort = 0.2;   // of what never does

class ControlQueryTest : public ::testing::Test {
 protected:
  ControlReply ask(const std::string& name, double limitS) const {
    return askControls({folder_.file(name)}, "status", limitS).at(0);
  }
  host_test::TempFolder folder_;
};

TEST_F(ControlQueryTest, BringsTheLineBack) {
  NamedSocket good(folder_.file("good"), true);
  good.serveText("{\"ok\":true}\nmore");
  const ControlReply reply = ask("good", kAmple);
  EXPECT_EQ(reply.kind, Kind::Answered);
  EXPECT_EQ(reply.line, "{\"ok\":true}");
  EXPECT_EQ(reply.reason, "");
}

TEST_F(ControlQueryTest, AnAnswerMayComeInPieces) {
  NamedSocket slow(folder_.file("slow"), true);
  slow.serve([](int peer) {
    for (const char* piece : {"{\"a\"", ":1}", "\n"}) (void)!send(peer, piece, std::strlen(piece), MSG_NOSIGNAL);
  });
  EXPECT_EQ(ask("slow", kAmple).line, "{\"a\":1}");
}

TEST_F(ControlQueryTest, SaysWhatIsWrongWithEachBrokenOne) {
  const NamedSocket stale(folder_.file("stale"), false);
  const NamedSocket silent(folder_.file("silent"), true);
  host_test::writeText(folder_.file("file"), "text");
  EXPECT_EQ(ask("stale", kAmple).kind, Kind::Stale);
  EXPECT_NE(ask("stale", kAmple).reason.find("nobody listens"), std::string::npos);
  EXPECT_EQ(ask("silent", kShort).kind, Kind::Silent);
  EXPECT_NE(ask("silent", kShort).reason.find("within 0.2 s"), std::string::npos);
  EXPECT_EQ(ask("file", kAmple).reason, "it is no socket");
  EXPECT_EQ(ask("missing", kAmple).kind, Kind::Failed);
  EXPECT_NE(ask(std::string(200, 'x'), kAmple).reason.find("too long"), std::string::npos);
}

TEST_F(ControlQueryTest, OneThatHangsUpOrNeverEndsIsNoAnswer) {
  NamedSocket closing(folder_.file("closing"), true);
  closing.serve([](int) {});
  EXPECT_EQ(ask("closing", kAmple).kind, Kind::Closed);
  NamedSocket endless(folder_.file("endless"), true);
  endless.serve([](int peer) {
    const std::string part(4096, 'x');
    while (send(peer, part.data(), part.size(), MSG_NOSIGNAL) > 0) continue;
  });
  EXPECT_EQ(ask("endless", kAmple).kind, Kind::TooLong);
}

TEST_F(ControlQueryTest, AFullQueueIsWaitedForAndThenSaid) {
  const NamedSocket full(folder_.file("full"), true);
  std::vector<std::string> many(20, folder_.file("full"));  // more than its queue takes
  for (const ControlReply& reply : askControls(many, "status", kShort)) EXPECT_EQ(reply.kind, Kind::Silent);
}

TEST_F(ControlQueryTest, BrokenOnesDoNotHoldUpTheOthers) {
  const NamedSocket stale(folder_.file("stale"), false);
  const NamedSocket silent(folder_.file("silent"), true);
  NamedSocket good(folder_.file("good"), true);
  good.serveText("yes\n");
  const std::vector<ControlReply> replies =
      askControls({folder_.file("silent"), folder_.file("stale"), folder_.file("good")}, "status", kShort * 5);
  ASSERT_EQ(replies.size(), 3U);
  EXPECT_EQ(replies[0].kind, Kind::Silent);
  EXPECT_EQ(replies[1].kind, Kind::Stale);
  EXPECT_EQ(replies[2].line, "yes");
  EXPECT_TRUE(askControls({}, "status", kAmple).empty());
}

}  // namespace
}  // namespace host
