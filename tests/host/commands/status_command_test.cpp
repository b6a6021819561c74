// csrt-track status: which cameras there are, what is made of their answers, and runs that work, hang and are gone.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "base/host_error.h"
#include "commands/camera_table.h"
#include "support/host_program.h"
#include "support/unix_sockets.h"

namespace host {
namespace {

using host_test::linesOf;
using host_test::NamedSocket;
using host_test::Program;
using host_test::ProgramResult;
using host_test::runProgram;
using host_test::TempFolder;
using Json = nlohmann::ordered_json;

ControlReply answered(const std::string& line) {
  return {ControlReply::Kind::Answered, line, ""};
}

std::string statusLine(const std::string& targets, const std::string& noSignal = "false") {
  return R"({"ok":true,"command":"status","frame":90,"no_signal":)" + noSignal +
         R"(,"frames":80,"rate_fps":24.96,"dropped":3,"age_ms":41.2,"running_s":4.5,"targets":)" + targets + "}";
}

CameraStatus judged(const std::string& line) {
  return judgeCamera({"front", "/s"}, answered(line));
}

TEST(JudgeCamera, NamesTheStateOfItsTargets) {
  EXPECT_EQ(judged(statusLine("[]")).state, "waiting for a target");
  EXPECT_EQ(judged(statusLine(R"([{"state":"tracked"}])")).state, "tracked");
  EXPECT_EQ(judged(statusLine(R"([{"state":"lost"},{"state":"tracked"},{"state":"lost"}])")).state,
            "2 lost, 1 tracked");
  EXPECT_TRUE(judged(statusLine(R"([{"state":"lost"}])")).fine) << "a lost target is no fault of the camera";
}

TEST(JudgeCamera, WithoutASignalTheCameraIsNotFine) {
  const CameraStatus status = judged(statusLine(R"([{"state":"tracked"}])", "true"));
  EXPECT_TRUE(status.running);
  EXPECT_FALSE(status.fine);
  EXPECT_EQ(status.state, "no signal");
}

TEST(JudgeCamera, TakesNothingElseForAnAnswer) {
  for (const std::string line :
       {"", "hello", "{}", "[1]", R"({"ok":false,"error":"x"})", R"({"ok":true})", R"({"ok":true,"targets":5})"}) {
    const CameraStatus status = judged(line);
    EXPECT_FALSE(status.running) << line;
    EXPECT_NE(status.fault.find("no status of this program"), std::string::npos) << line;
  }
  EXPECT_FALSE(judged(std::string(100000, '[')).running);
  EXPECT_EQ(judged(statusLine(R"([5,{"state":7}])")).state, "2 unknown");
}

TEST(CameraTable, KeepsANameFromMovingTheCursor) {
  CameraStatus status = judged(statusLine(R"([{"state":"tracked"}])"));
  status.place.name = "a\x1B[2J\nb\xFF";
  const std::string table = cameraTable({status});
  EXPECT_EQ(linesOf(table).size(), 2U) << table;
  EXPECT_NE(table.find("a\\x1B[2J\\x0Ab\\xFF"), std::string::npos) << table;
  EXPECT_EQ(camerasJson({status})["cameras"][0]["camera"], status.place.name);
}

TEST(CameraTable, ShowsStateAgeRateAndDrops) {
  const std::string row = linesOf(cameraTable({judged(statusLine(R"([{"state":"tracked"}])"))})).at(1);
  for (const char* part : {"front", "tracked", "41 ms", "25.0", " 3 ", " 90"}) {
    EXPECT_NE(row.find(part), std::string::npos) << part << " in " << row;
  }
  const std::string gone = cameraTable({judgeCamera({"back", ""}, {})});
  EXPECT_NE(gone.find("is not running"), std::string::npos);
}

TEST(CameraFolder, TakesSocketsAloneAndByEitherForm) {
  const TempFolder folder;
  for (const char* sub : {"yard", "csrt-track-front", "empty"}) mkdir(folder.file(sub).c_str(), 0700);
  const NamedSocket plain(folder.file("gate"), false);
  const NamedSocket inFolder(folder.file("yard/control"), false);
  const NamedSocket ofUnit(folder.file("csrt-track-front/control"), false);
  host_test::writeText(folder.file("notes.txt"), "x");
  std::vector<std::string> names;
  for (const CameraPlace& place : camerasIn(folder.file(""))) names.push_back(place.name);
  EXPECT_EQ(names, (std::vector<std::string>{"front", "gate", "yard"}));
  EXPECT_THROW(camerasIn(folder.file("none")), HostError);
  EXPECT_THROW(camerasIn(folder.file("notes.txt")), HostError);
}

TEST(CameraFolder, OfTheServiceHoldsAlsoCamerasThatOnlyHaveSettings) {
  const TempFolder root;
  host_test::fs::create_directories(root.file("etc/csrt-track"));
  host_test::fs::create_directories(root.file("run/csrt-track-front"));
  host_test::fs::create_directories(root.file("run/other"));
  const NamedSocket front(root.file("run/csrt-track-front/control"), false);
  const NamedSocket foreign(root.file("run/other/control"), false);
  for (const char* name : {"front.env", "back.env", ".env", "back.env.bak"}) {
    host_test::writeText(root.file(std::string("etc/csrt-track/") + name), "");
  }
  const std::vector<CameraPlace> places = camerasOfService(root.file(""));
  ASSERT_EQ(places.size(), 2U) << "another program's socket is left alone";
  EXPECT_EQ(places[0].name, "back");
  EXPECT_EQ(places[0].socket, "");
  EXPECT_EQ(places[1].name, "front");
  EXPECT_NE(places[1].socket, "");
  EXPECT_TRUE(camerasOfService(root.file("nothing")).empty());
}

/// Runs over a drawn scene at its own rate, long enough for the test, each with a control socket in one folder.
class StatusOfRuns : public ::testing::Test {
 protected:
  StatusOfRuns() {
    EXPECT_EQ(runProgram({"draw-scene", folder_.file("scene.avi"), "--frames", "1500"}).status, 0);
    mkdir(sockets().c_str(), 0700);
  }
  std::string sockets() const { return folder_.file("sockets"); }

  std::unique_ptr<Program> camera(const std::string& name) const {
    auto program = std::make_unique<Program>(
        std::vector<std::string>{"track", folder_.file("scene.avi"), "--box", "116,165,32,60", "--pace", "source",
                                 "--plugin", CSRT_FAKE_PLUGIN, "--quiet", "--control", sockets() + "/" + name});
    for (int i = 0; i < 600 && !answers_(name) && !program->ended(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return program;
  }
  ProgramResult status(std::vector<std::string> more) const {
    std::vector<std::string> arguments = {"status", "--dir", sockets()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runProgram(arguments);
  }
  Json statusJson(int expected, std::vector<std::string> more = {}) const {
    more.emplace_back("--json");
    const ProgramResult result = status(std::move(more));
    EXPECT_EQ(result.status, expected) << result.out << result.err;
    return Json::parse(result.out, nullptr, false);
  }

 private:
  bool answers_(const std::string& name) const {
    return askControls({sockets() + "/" + name}, "status", 1.0)[0].kind == ControlReply::Kind::Answered;
  }
  TempFolder folder_;
};

TEST_F(StatusOfRuns, ThatWorkAreShownWithStateRateAndFrame) {
  const auto front = camera("front");
  const auto back = camera("b ack\xE9");
  const Json all = statusJson(0, {"--limit", "30"});
  EXPECT_EQ(all["schema"], "csrt-track.status");
  EXPECT_TRUE(all["fine"]);
  ASSERT_EQ(all["cameras"].size(), 2U);
  EXPECT_EQ(all["cameras"][0]["camera"], "b ack\\xE9") << "JSON is UTF-8 whatever a file is called";
  const Json& one = all["cameras"][1];
  EXPECT_EQ(one["state"], "tracked");
  EXPECT_GE(one["frames"], 1);
  EXPECT_EQ(one["dropped"], 0);
  EXPECT_EQ(one["targets"].size(), 1U);
  const ProgramResult table = status({"front", "--limit", "30"});
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(linesOf(table.out).size(), 2U) << table.out;
  for (const Program* program : {front.get(), back.get()}) program->signal(SIGTERM);
  front->wait();
  back->wait();
}

TEST_F(StatusOfRuns, ThatHangAreKilledOrNeverStartedAreSaidAndTheOthersShown) {
  const auto works = camera("works");
  const auto hangs = camera("hangs");
  const auto killed = camera("killed");
  hangs->signal(SIGSTOP);
  killed->signal(SIGKILL);
  killed->wait();
  const NamedSocket silent(sockets() + "/silent", true);
  NamedSocket foreign(sockets() + "/foreign", true);
  foreign.serveText("220 mail server\n");
  const Json all = statusJson(1, {"--limit", "3"});
  EXPECT_FALSE(all["fine"]);
  std::map<std::string, Json> byName;
  for (const Json& camera : all["cameras"]) byName[camera["camera"]] = camera;
  ASSERT_EQ(byName.size(), 5U);
  EXPECT_TRUE(byName["works"]["fine"]);
  const auto faultOf = [&byName](const char* name) { return byName[name].value("fault", std::string("none")); };
  EXPECT_NE(faultOf("hangs").find("does not answer"), std::string::npos) << faultOf("hangs");
  EXPECT_NE(faultOf("killed").find("is not running: nobody listens"), std::string::npos) << faultOf("killed");
  EXPECT_NE(faultOf("silent").find("within 3 s"), std::string::npos) << faultOf("silent");
  EXPECT_NE(faultOf("foreign").find("no status of this program"), std::string::npos) << faultOf("foreign");
  const ProgramResult missing = status({"works", "absent", "--limit", "30"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.out.find("absent  is not running"), std::string::npos) << missing.out;
  hangs->signal(SIGCONT);
  for (const Program* program : {works.get(), hangs.get()}) program->signal(SIGTERM);
  works->wait();
  hangs->wait();
}

TEST(StatusCommand, WithoutCamerasOrWithAWrongFolderSaysSo) {
  const TempFolder folder;
  host_test::expectOneSentence(runProgram({"status", "--dir", folder.file("")}), 1, "no camera runs here");
  host_test::expectOneSentence(runProgram({"status", "--dir", folder.file("none")}), 2, "none");
  host_test::expectOneSentence(runProgram({"status", "--limit", "0"}), 2, "--limit");
  const ProgramResult json = runProgram({"status", "--json", "--dir", folder.file("")});
  EXPECT_EQ(json.status, 1);
  EXPECT_FALSE(Json::parse(json.out, nullptr, false)["fine"]);
}

}  // namespace
}  // namespace host
