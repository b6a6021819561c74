// The page's server, asked over real connections; the run behind it is played by the test.
#include "web/web_server.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "base/host_error.h"
#include "raw_http.h"
#include "served_page.h"
#include "support/host_program.h"
#include "web/connection_watch.h"

namespace {

using namespace host_test;
using host::FrontAnswer;
using host::FrontCommand;
using host::web::WebOptions;
using host::web::WebParts;
using host::web::WebServer;
using Json = nlohmann::json;

constexpr const char* kToken = "correct-horse-battery";

using WebServerTest = ServedPageTest;

TEST_F(WebServerTest, GivesThePageAndItsFilesAndNothingElse) {
  for (const char* path : {"/", "/page.css", "/main.mjs", "/geometry.mjs", "/chart.js", "/icon.svg", "/openapi.json"}) {
    const HttpAnswer answer = asked(path);
    EXPECT_EQ(answer.status, 200) << path;
    EXPECT_GT(answer.body.size(), 10U) << path;
  }
  for (const char* path :
       {"/etc/passwd", "/../etc/passwd", "/%2e%2e/etc/passwd", "/api", "/page.html", "/.git/config"}) {
    EXPECT_EQ(asked(path).status, 404) << path;
  }
}

TEST_F(WebServerTest, ThePageNamesNoOtherAddress) {
  for (const char* path : {"/", "/page.css", "/main.mjs", "/api.mjs", "/pick.mjs", "/settings.mjs", "/timeline.mjs",
                           "/overlay.mjs", "/geometry.mjs"}) {
    const std::string text = asked(path).body;
    EXPECT_EQ(text.find("http://"), std::string::npos) << path;
    EXPECT_EQ(text.find("https://"), std::string::npos) << path;
    EXPECT_EQ(text.find("=\"//"), std::string::npos) << path;
    EXPECT_EQ(text.find(" style=\""), std::string::npos) << path << ": the policy would refuse it";
  }
}

TEST_F(WebServerTest, EveryAnswerCarriesThePolicyAlsoARefusal) {
  for (const HttpAnswer& answer :
       {asked("/"), asked("/nothing"), asked("/api/state"),
        converse(port_, "GET / HTTP/1.1\r\nHost: evil.example\r\nConnection: close\r\n\r\n")}) {
    EXPECT_NE(answer.head.find("Content-Security-Policy: default-src 'none'"), std::string::npos) << answer.head;
    EXPECT_EQ(answer.head.find("unsafe"), std::string::npos);
    EXPECT_NE(answer.head.find("X-Content-Type-Options: nosniff"), std::string::npos);
    EXPECT_NE(answer.head.find("Cross-Origin-Resource-Policy: same-origin"), std::string::npos);
    EXPECT_NE(answer.head.find("Cache-Control: no-store"), std::string::npos);
    EXPECT_EQ(answer.head.find("Access-Control-Allow"), std::string::npos);
  }
}

TEST_F(WebServerTest, AForeignHostIs403) {
  const HttpAnswer answer =
      converse(port_, "GET /api/state HTTP/1.1\r\nHost: evil.example:8080\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(answer.status, 403);
  EXPECT_NE(error(answer), "");
  EXPECT_EQ(converse(port_, "GET / HTTP/1.0\r\n\r\n").status, 403) << "no host at all";
}

TEST_F(WebServerTest, AnOrderWithoutTheHeaderIs403AndDoesNothing) {
  const std::string body = R"({"box":[1,2,3,4]})";
  EXPECT_EQ(converse(port_,
                     "POST /api/targets HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
                     "Connection: close\r\nContent-Length: " +
                         std::to_string(body.size()) + "\r\n\r\n" + body)
                .status,
            403);
  EXPECT_EQ(
      converse(port_, postText("/api/targets", body, "Origin: http://evil.example\r\nConnection: close\r\n")).status,
      403);
  EXPECT_EQ(last().box.width, 0);
}

TEST_F(WebServerTest, WithATokenEverythingNeedsIt) {
  serve(kToken);
  for (const char* path : {"/", "/frame", "/stream.mjpeg", "/api/state", "/api/events", "/metrics", "/openapi.json"}) {
    const HttpAnswer answer = asked(path);
    EXPECT_EQ(answer.status, 401) << path;
    EXPECT_NE(answer.head.find("WWW-Authenticate: Basic"), std::string::npos);
  }
  EXPECT_EQ(ordered("/api/stop", "{}").status, 401);
  EXPECT_EQ(asked("/api/state", std::string("Authorization: Bearer ") + kToken + "\r\n").status, 200);
  EXPECT_EQ(asked("/api/state?token=" + std::string(kToken)).status, 401) << "addresses end up in logs";
}

TEST_F(WebServerTest, GuessingIsSlowedDown) {
  serve(kToken);
  int slowed = 0;
  for (int i = 0; i < 20; ++i)
    slowed += asked("/api/state", "Authorization: Bearer wrong-wrong-wrong\r\n").status == 429;
  EXPECT_GE(slowed, 5);
}

TEST(WebServerStart, BeyondLoopbackATokenIsNeededAndAShortOneRefused) {
  WebParts parts("", "", "{}");
  WebOptions options;
  options.address = host::web::listenAddressOf("0.0.0.0:0");
  EXPECT_THROW(const WebServer server(options, parts), host::HostError);
  options.token = "short";
  EXPECT_THROW(const WebServer server(options, parts), host::HostError);
}

TEST_F(WebServerTest, APortThatIsTakenIsSaid) {
  WebParts parts("", "", "{}");
  WebOptions options;
  options.address = host::web::listenAddressOf("127.0.0.1:" + std::to_string(port_));
  try {
    const WebServer second(options, parts);
    FAIL() << "two listen on one port";
  } catch (const host::HostError& e) {
    EXPECT_NE(std::string(e.what()).find(std::to_string(port_)), std::string::npos);
  }
}

TEST_F(WebServerTest, BodiesAreLimitedHoweverTheyAreSent) {
  EXPECT_EQ(converse(port_, postText("/api/targets", std::string(70000, ' '))).status, 413);
  const std::string head =
      "POST /api/targets HTTP/1.1\r\nHost: localhost\r\nX-Csrt-Track: 1\r\n"
      "Content-Type: application/json\r\n";
  EXPECT_EQ(converse(port_, head + "Transfer-Encoding: chunked\r\n\r\n5\r\n{\"a\":\r\n").status, 415);
  EXPECT_EQ(converse(port_, head + "Content-Encoding: gzip\r\nContent-Length: 2\r\n\r\n{}").status, 415);
  EXPECT_EQ(converse(port_, head + "\r\n").status, 411);
  EXPECT_EQ(converse(port_, head + "Content-Length: 99999999999999999999\r\n\r\n").status, 413);
  EXPECT_EQ(converse(port_, head + "Content-Length: -5\r\n\r\n").status, 413);
  EXPECT_EQ(converse(port_,
                     "POST /api/targets HTTP/1.1\r\nHost: localhost\r\nX-Csrt-Track: 1\r\n"
                     "Content-Type: text/plain\r\nContent-Length: 2\r\n\r\n{}")
                .status,
            415);
}

TEST_F(WebServerTest, TheBodyOfARefusedOrderIsNeverTakenForARequest) {
  const std::string hidden = "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n";
  const std::string length = "Content-Length: " + std::to_string(hidden.size()) + "\r\n\r\n";
  const std::string own = " HTTP/1.1\r\nHost: localhost\r\nX-Csrt-Track: 1\r\n";
  const std::string json = "Content-Type: application/json\r\n";
  for (const std::string& refused :
       {"POST /api/stop HTTP/1.1\r\nHost: evil.example\r\n" + length,
        "POST /api/stop HTTP/1.1\r\nHost: localhost\r\n" + length,
        "POST /api/stop" + own + "Content-Type: text/plain\r\n" + length, "GET /api/state" + own + length,
        "HEAD /api/state" + own + length, "OPTIONS /api/state" + own + json + length,
        "PUT /api/state" + own + json + length, "POST /api/stop" + own + json + "Transfer-Encoding: chunked\r\n\r\n"}) {
    const RawConnection connection(port_);
    connection.send(refused);
    const HttpAnswer answer = connection.answer();
    EXPECT_GE(answer.status, 400) << refused;
    connection.send(hidden);  // after the answer: a packet of its own
    const std::string rest = connection.receive();
    EXPECT_EQ(rest.find("200 OK"), std::string::npos) << refused;
  }
}

// What another site's page can make a browser send: a refused order in whose text an order of the right form lies.
TEST_F(WebServerTest, AnOrderInsideARefusedBodyHasNoEffect) {
  const std::string hidden = postText("/api/targets", R"({"box":[1,2,3,4]})");
  for (int pause_ms : {0, 20}) {
    const RawConnection connection(port_);
    connection.send(
        "POST /api/stop HTTP/1.1\r\nHost: localhost\r\nOrigin: http://evil.example\r\nContent-Type: text/plain\r\n"
        "Content-Length: " +
        std::to_string(hidden.size()) + "\r\n\r\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
    connection.send(hidden);
    const std::string all = connection.receive();
    EXPECT_NE(all.find("403"), std::string::npos);
    EXPECT_EQ(all.find("200 OK"), std::string::npos) << all;
  }
  EXPECT_EQ(last().box.width, 0);
}

TEST_F(WebServerTest, WhatIsNoJsonOrNoOrderIsRefusedWithTheMember) {
  EXPECT_EQ(ordered("/api/targets", "not json").status, 400);
  EXPECT_EQ(ordered("/api/targets", "[1]").status, 400);
  EXPECT_EQ(ordered("/api/targets", std::string(60000, '[')).status, 400);
  for (const char* body :
       {"{}", R"({"box":[1,2,3]})", R"({"box":[1,2,0,4]})", R"({"box":[1,2,-3,4]})", R"({"box":["1",2,3,4]})",
        R"({"box":[1e300,2,3,4]})", R"({"box":[1,2,3,4],"point":[1,2]})", R"({"box":[1,2,3,4],"frame":-1})",
        R"({"box":[1,2,3,4],"frame":1.5})", R"({"box":[1,2,3,4],"name":""})", R"({"box":[1,2,3,4],"name":"<b>"})",
        R"({"box":[1,2,3,4],"name":" a"})", R"({"box":[1,2,3,4],"name":"abcdefghijklmnopqrstuvwxyz0123456789"})",
        R"({"box":[1,2,3,4],"source":"rtsp://x"})", R"({"box":[1,2,3,4],"pipeline":"videotestsrc"})"}) {
    const HttpAnswer answer = ordered("/api/targets", body);
    EXPECT_EQ(answer.status, 422) << body;
    EXPECT_NE(error(answer).find('\''), std::string::npos) << answer.body;
  }
  EXPECT_EQ(last().box.width, 0);
  EXPECT_EQ(asked("/frame?after=x").status, 400);
  EXPECT_EQ(asked("/frame?wait_ms=999999999").status, 400);
  EXPECT_EQ(asked("/api/timeline?after=soon").status, 400);
}

TEST_F(WebServerTest, ADrawnBoxReachesTheRunWithItsFrame) {
  const HttpAnswer answer = ordered("/api/targets", R"({"name":"red car","box":[10,20,30,40],"frame":1234})");
  EXPECT_EQ(answer.status, 200) << answer.body;
  EXPECT_EQ(last().kind, FrontCommand::Kind::Box);
  EXPECT_EQ(last().target, "red car");
  EXPECT_EQ(last().box.x, 10);
  EXPECT_EQ(last().box.height, 40);
  EXPECT_EQ(last().frame, 1234);
  EXPECT_EQ(Json::parse(answer.body)["box"], Json({10, 20, 30, 40}));
  EXPECT_EQ(ordered("/api/targets", R"({"point":[7,8]})").status, 200);
  EXPECT_EQ(last().kind, FrontCommand::Kind::Point);
  EXPECT_EQ(last().point, cv::Point(7, 8));
  EXPECT_EQ(last().frame, std::nullopt);
  EXPECT_EQ(ordered("/api/stop", R"({"name":"red car"})").status, 200);
  EXPECT_EQ(last().kind, FrontCommand::Kind::Stop);
}

TEST_F(WebServerTest, ARunThatIsOverRefusesOrders) {
  front_->end();
  EXPECT_EQ(ordered("/api/stop", "{}").status, 503);
  EXPECT_EQ(Json::parse(asked("/api/state").body)["ended"], true);
}

TEST_F(WebServerTest, AProposalStartsNothing) {
  EXPECT_EQ(ordered("/api/propose", R"({"point":[30,18]})").status, 409) << "no picture yet";
  show(5);
  const HttpAnswer answer = ordered("/api/propose", R"({"point":[30,18],"frame":5})");
  EXPECT_EQ(answer.status, 200) << answer.body;
  EXPECT_EQ(Json::parse(answer.body)["box"].size(), 4U);
  EXPECT_EQ(ordered("/api/propose", R"({"point":[30,18],"frame":4})").status, 409);
  EXPECT_EQ(last().kind, FrontCommand::Kind::Stop) << "nothing was asked of the run";
  EXPECT_FALSE(last().answer);
}

TEST_F(WebServerTest, APictureSaysWhatIsKnownAboutIt) {
  show(41);
  const HttpAnswer answer = asked("/frame");
  EXPECT_NE(answer.head.find("Content-Type: image/jpeg"), std::string::npos);
  EXPECT_NE(answer.head.find("Csrt-Frame: 41\r\n"), std::string::npos);
  ASSERT_EQ(answer.body.substr(0, 4), "\xFF\xD8\xFF\xFE");
  const std::size_t length =
      static_cast<unsigned char>(answer.body[4]) * 256U + static_cast<unsigned char>(answer.body[5]);
  EXPECT_EQ(Json::parse(answer.body.substr(6, length - 2))["frame"], 41);
  const HttpAnswer nothing = asked("/frame?after=41&wait_ms=10");
  EXPECT_EQ(Json::parse(nothing.body)["frame"], 41) << "no newer picture: what is known alone";
}

TEST_F(WebServerTest, WaitingViewersLeaveRoomForTheRest) {
  show(1);
  std::vector<std::unique_ptr<RawConnection>> waiting;
  for (int i = 0; i < 40; ++i) {
    waiting.push_back(std::make_unique<RawConnection>(port_));
    waiting.back()->send("GET /frame?after=1&wait_ms=20000 HTTP/1.1\r\nHost: localhost\r\n\r\n");
  }
  while (asked("/metrics").body.find("csrt_viewers 40\n") == std::string::npos) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(asked("/frame?after=1").status, 503) << "one more than may wait";
  EXPECT_EQ(asked("/api/events").status, 503);
  EXPECT_EQ(asked("/api/state").status, 200);
  EXPECT_EQ(ordered("/api/stop", "{}").status, 200);
  show(2);
  for (const auto& viewer : waiting) {
    const HttpAnswer answer = viewer->answer();
    EXPECT_NE(answer.head.find("Csrt-Frame: 2\r\n"), std::string::npos) << answer.head;
  }
  EXPECT_EQ(parts_->frames.encoded(), 1);
}

TEST_F(WebServerTest, EndsAtOnceWhileViewersWait) {
  show(1);
  const RawConnection viewer(port_);
  viewer.send("GET /frame?after=1&wait_ms=20000 HTTP/1.1\r\nHost: localhost\r\n\r\n");
  const RawConnection stream(port_);
  stream.send("GET /stream.mjpeg HTTP/1.1\r\nHost: localhost\r\n\r\n");
  while (asked("/metrics").body.find("csrt_viewers 2\n") == std::string::npos) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const RawConnection idle(port_);
  idle.send("GET /api/state HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(idle.answer().status, 200);
  const double before = host::web::secondsNow();
  server_.reset();
  EXPECT_LT(host::web::secondsNow() - before, 4.0) << "a connection that is kept for later was waited for";
  EXPECT_EQ(viewer.answer().status, 200);
}

TEST_F(WebServerTest, AStreamForOtherProgramsIsMjpeg) {
  show(1);
  const RawConnection connection(port_);
  connection.send("GET /stream.mjpeg HTTP/1.1\r\nHost: localhost\r\n\r\n");
  std::string all;
  for (long index = 2; all.find("Csrt-Frame: 2\r\n") == std::string::npos && index < 2000; ++index) {
    all += connection.receive(1, 50);
    show(all.find("Csrt-Frame: 1\r\n") == std::string::npos ? 1 : 2);
  }
  EXPECT_NE(all.find("multipart/x-mixed-replace"), std::string::npos);
  EXPECT_NE(all.find("Content-Type: image/jpeg"), std::string::npos);
  EXPECT_NE(all.find("Csrt-Frame: 2\r\n"), std::string::npos);
}

TEST_F(WebServerTest, RecordsComeAsServerSentEvents) {
  const RawConnection connection(port_);
  connection.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
  std::string all;
  for (int i = 0; i < 400 && all.find("data: {") == std::string::npos; ++i) {
    host::SourceFrame frame;
    frame.bgr = cv::Mat(36, 64, CV_8UC3);
    host::CallRecord record;
    record.target = "car";
    front_->frame(frame, {record});
    all += connection.receive(1, 50);
  }
  EXPECT_NE(all.find("text/event-stream"), std::string::npos);
  const std::size_t at = all.find("event: record\ndata: {");
  ASSERT_NE(at, std::string::npos) << all;
  const std::string line = all.substr(at + 20, all.find('\n', at + 20) - at - 20);
  EXPECT_EQ(recordFault(Json::parse(line)), "") << line;
}

TEST_F(WebServerTest, ConfigurationIsTakenLiveAndBadValuesAreRefusedWithTheKey) {
  const HttpAnswer refused = ordered("/api/config", R"({"config":{"roi":{"margin_factor":99}}})");
  EXPECT_EQ(refused.status, 422);
  EXPECT_EQ(Json::parse(refused.body)["faults"][0]["key"], "roi.margin_factor");
  EXPECT_NE(error(refused).find("roi.margin_factor"), std::string::npos);
  EXPECT_EQ(last().configText, "");
  EXPECT_EQ(ordered("/api/config", R"({"config":{"roi":{"margin_factor":3.0}}})").status, 200);
  EXPECT_EQ(last().kind, FrontCommand::Kind::Configure);
  EXPECT_EQ(Json::parse(last().configText), Json::parse(R"({"roi":{"margin_factor":3.0}})"));
  EXPECT_EQ(Json::parse(asked("/api/config").body)["values"]["roi"]["margin_factor"], 3.0);
  EXPECT_EQ(Json::parse(asked("/api/state").body)["configured"], 1);
  EXPECT_EQ(Json::parse(asked("/api/config/file").body), Json::parse(R"({"roi":{"margin_factor":3.0}})"));
  EXPECT_EQ(ordered("/api/config", R"({"preset":"defaults"})").status, 200);
  EXPECT_EQ(Json::parse(asked("/api/config/file").body), Json::object());
  EXPECT_EQ(ordered("/api/config", R"({"preset":"none such"})").status, 422);
  EXPECT_EQ(ordered("/api/config", "{}").status, 422);
  EXPECT_EQ(ordered("/api/config", R"({"config":5})").status, 422);
}

TEST(ConnectionUseTest, OnlyAStreamMayLastForLong) {
  using host::web::ConnectionUse;
  using host::web::isOverdue;
  EXPECT_FALSE(isOverdue(ConnectionUse{100, false, false}, 111));
  EXPECT_TRUE(isOverdue(ConnectionUse{100, false, false}, 113)) << "a head that never comes to its end";
  EXPECT_FALSE(isOverdue(ConnectionUse{100, true, false}, 159));
  EXPECT_TRUE(isOverdue(ConnectionUse{100, true, false}, 161)) << "a body that trickles in";
  EXPECT_FALSE(isOverdue(ConnectionUse{100, true, true}, 1e6));
}

TEST_F(WebServerTest, KnowsTheConnectionsItHasAccepted) {
  const RawConnection first(port_);
  first.send("GET /api/state HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(first.answer().status, 200);
  const auto accepted = host::web::acceptedOn(port_);
  ASSERT_EQ(accepted.size(), 1U);
  EXPECT_EQ(accepted[0].peer.first, "127.0.0.1");
  ::shutdown(accepted[0].socket, SHUT_RDWR);
  EXPECT_EQ(first.receive(), "");
}

TEST(TokenFile, AMissingOneIsMadeForItsOwnerAlone) {
  const TempFolder folder;
  bool made = false;
  const std::string token = host::web::tokenOfFile(folder.file("token"), made);
  EXPECT_TRUE(made);
  EXPECT_GE(token.size(), 20U);
  struct stat about {};
  ASSERT_EQ(::stat(folder.file("token").c_str(), &about), 0);
  EXPECT_EQ(about.st_mode & 0777U, 0600U);
  EXPECT_EQ(host::web::tokenOfFile(folder.file("token"), made), token);
  EXPECT_FALSE(made);
  const TempFolder other;
  EXPECT_NE(host::web::tokenOfFile(other.file("token"), made), token);
}

TEST(TokenFile, OneThatOthersReadOrThatIsShortIsRefused) {
  const TempFolder folder;
  bool made = false;
  const std::string path = folder.file("token");
  for (const char* text : {"", "short\n", "has a space in its middle\n"}) {
    writeText(path, text);
    ::chmod(path.c_str(), 0600);
    EXPECT_THROW(host::web::tokenOfFile(path, made), host::HostError) << text;
  }
  writeText(path, "long-enough-for-a-token\r\n");
  EXPECT_EQ(host::web::tokenOfFile(path, made), "long-enough-for-a-token");
  ::chmod(path.c_str(), 0644);
  EXPECT_THROW(host::web::tokenOfFile(path, made), host::HostError);
  EXPECT_THROW(host::web::tokenOfFile(folder.file("no/such/folder/token"), made), host::HostError);
}

}  // namespace
