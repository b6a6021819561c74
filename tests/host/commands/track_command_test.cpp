// csrt-track track from end to end: the built program, a drawn video, a scripted plug-in.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <thread>

#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

const cv::Size kSize(320, 180);
constexpr int kFrames = 20;

class TrackCommand : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new TempFolder;
    video_ = folder_->file("scene.avi");
    host::writeStreetScene(video_, kSize, kFrames, 10.0);
  }
  static void TearDownTestSuite() { delete std::exchange(folder_, nullptr); }

  static std::vector<std::string> track(const std::vector<std::string>& more, const std::string& box = "10,20,30,40") {
    std::vector<std::string> all = {"track", video_, "--plugin", CSRT_FAKE_PLUGIN};
    if (!box.empty()) all.insert(all.end(), {"--box", box});
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  static ProgramResult run(const std::vector<std::string>& more, const std::string& box = "10,20,30,40") {
    return runProgram(track(more, box));
  }
  /// .mp4, or .avi where this OpenCV was built without an encoder for it.
  static std::string videoEnding() {
    static const bool mp4 =
        cv::VideoWriter().open(folder_->file("try.mp4"), cv::VideoWriter::fourcc('m', 'p', '4', 'v'), 10.0, kSize);
    return mp4 ? ".mp4" : ".avi";
  }
  /// The records of a run with the given script, one letter per update.
  static std::vector<Json> scripted(const std::string& script, const std::vector<std::string>& more = {}) {
    std::vector<std::string> all = {
        "--records", "-", "--quiet", "--set", "fake.script=" + script, "--frames", std::to_string(script.size() + 1)};
    all.insert(all.end(), more.begin(), more.end());
    const ProgramResult result = run(all);
    EXPECT_EQ(result.status, 0) << result.err;
    return recordsOf(result.out);
  }

  static TempFolder* folder_;
  static std::string video_;
};
TempFolder* TrackCommand::folder_ = nullptr;
std::string TrackCommand::video_;

TEST_F(TrackCommand, WritesOneRecordPerCall) {
  const std::vector<Json> records = scripted("tt");
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records[0]["call"], "init");
  EXPECT_EQ(records[0]["started"], true);
  EXPECT_EQ(records[0]["frame"], 0);
  EXPECT_EQ(records[1]["call"], "update");
  EXPECT_FALSE(records[1].contains("started"));
  EXPECT_EQ(records[2]["frame"], 2);
  EXPECT_DOUBLE_EQ(records[2]["time_s"].get<double>(), 0.2);
  EXPECT_GE(records[2]["update_ms"].get<double>(), 0.0);
}

TEST_F(TrackCommand, KeepsThePluginsMembersInItsOrder) {
  const ProgramResult result = run({"--records", "-", "--frames", "2"});
  const auto record = nlohmann::ordered_json::parse(linesOf(result.out).at(1));
  const auto& output = record.at("outputs").at(0);
  EXPECT_EQ(output.at("name"), "detection.v1");
  std::vector<std::string> keys;
  for (const auto& item : output.at("value").at("detections").at(0).items()) keys.push_back(item.key());
  EXPECT_EQ(keys, (std::vector<std::string>{"x", "y", "w", "h", "class_id", "class_name", "class_info", "tracker_id",
                                            "score"}));
}

TEST_F(TrackCommand, TellsTheStateOfEveryAnswer) {
  const std::string script = "tuprRbcwzsehtomtiq";
  const std::vector<std::string> expected = {
      "tracked",  "predicted", "predicted", "redetected", "redetected", "rebuilt", "rebuilt", "waiting",  "reseeded",
      "reseeded", "predicted", "lost",      "tracked",    "lost",       "lost",    "tracked", "inactive", "inactive"};
  const std::vector<Json> records = scripted(script);
  ASSERT_EQ(records.size(), expected.size() + 1);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(records[i + 1]["state"], expected[i]) << "letter " << script[i];
  }
}

TEST_F(TrackCommand, CountsSinceTheTargetWasSeen) {
  const std::vector<Json> records = scripted("tpptt");
  EXPECT_EQ(records[2]["frames_since_seen"], 1);
  EXPECT_EQ(records[3]["frames_since_seen"], 2);
  EXPECT_DOUBLE_EQ(records[3]["seconds_since_seen"].get<double>(), 0.2);
  EXPECT_EQ(records[4]["frames_since_seen"], 0);
}

TEST_F(TrackCommand, GivesAScoreOnlyWhereItWasMeasured) {
  const std::vector<Json> records = scripted("tuprb");
  EXPECT_DOUBLE_EQ(records[1]["score"].get<double>(), 0.75);
  EXPECT_DOUBLE_EQ(records[2]["score"].get<double>(), 0.25);
  for (std::size_t i = 3; i < records.size(); ++i) EXPECT_FALSE(records[i].contains("score")) << records[i];
}

TEST_F(TrackCommand, KeepsTheWindowOutOfTheDetections) {
  const Json record = scripted("t").at(1);
  EXPECT_EQ(record["outputs"][0]["value"]["detections"].size(), 1U);
  EXPECT_EQ(record["window"], (Json{{"x", 0}, {"y", 0}, {"w", 64}, {"h", 48}}));
  EXPECT_EQ(record["box"], (Json{{"x", 11}, {"y", 20}, {"w", 30}, {"h", 40}}));
}

TEST_F(TrackCommand, AnExceptionOfThePluginIsALossAndTheRunGoesOn) {
  const std::vector<Json> records = scripted("txt");
  EXPECT_EQ(records[2]["state"], "lost");
  EXPECT_EQ(records[2]["reason"], "exception: scripted failure");
  EXPECT_EQ(records[3]["state"], "tracked");
}

/// Everything but the measured time.
std::vector<Json> withoutTimes(std::vector<Json> records) {
  for (Json& record : records) record.erase("update_ms");
  return records;
}

TEST_F(TrackCommand, RecordsAreTheSameWithAndWithoutDebug) {
  const ProgramResult plain = run({"--records", "-", "--quiet", "--set", "fake.script=tuprbh"});
  const ProgramResult debug = run({"--records", "-", "--quiet", "--debug", "--set", "fake.script=tuprbh"});
  EXPECT_EQ(withoutTimes(recordsOf(plain.out)), withoutTimes(recordsOf(debug.out)));
  EXPECT_EQ(plain.err, "");
  EXPECT_NE(debug.err.find("[AlgoPlugin INFO] [CSRTTrackingAlgo] update(): OUT 2 detections (track ok)"),
            std::string::npos);
}

TEST_F(TrackCommand, TheConfigurationCanAskForTheLogLinesToo) {
  EXPECT_NE(run({"--quiet", "--set", "misc.debug=true"}).err.find("(track ok)"), std::string::npos);
  EXPECT_EQ(run({"--quiet", "--set", "misc.debug=false"}).err, "");
}

TEST_F(TrackCommand, StandardOutputIsRecordsOrSummaryNeverBoth) {
  const ProgramResult records = run({"--records", "-", "--debug"});
  EXPECT_EQ(recordsOf(records.out).size(), static_cast<std::size_t>(kFrames));
  EXPECT_NE(records.err.find("tracked on 19 of 19 frames"), std::string::npos);
  const ProgramResult summary = run({"--debug"});
  EXPECT_NE(summary.out.find("tracked on 19 of 19 frames (100.0 %)"), std::string::npos);
  EXPECT_EQ(summary.out.find("AlgoPlugin"), std::string::npos);
}

TEST_F(TrackCommand, StartAndFramesChooseAPart) {
  const ProgramResult result = run({"--records", "-", "--quiet", "--start", "5", "--frames", "4"});
  const std::vector<Json> records = recordsOf(result.out);
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records.front()["frame"], 5);
  EXPECT_EQ(records.back()["frame"], 8);
  EXPECT_DOUBLE_EQ(records.back()["time_s"].get<double>(), 0.8);
}

TEST_F(TrackCommand, WritesVideoAndStill) {
  const std::string video = folder_->file("out" + videoEnding());
  const std::string still = folder_->file("out.png");
  const ProgramResult result = run({"--video", video, "--still", still});
  EXPECT_EQ(result.status, 0) << result.err;
  cv::VideoCapture capture(video);
  int frames = 0;
  for (cv::Mat frame; capture.read(frame); ++frames) EXPECT_EQ(frame.size(), kSize);
  EXPECT_EQ(frames, kFrames);
  EXPECT_EQ(cv::imread(still).size(), kSize);
  EXPECT_NE(result.out.find(video), std::string::npos);
  EXPECT_NE(result.out.find(still), std::string::npos);
}

TEST_F(TrackCommand, TakesFoldersAndPatternsInOrderOfTheirNumbers) {
  const std::string pictures = folder_->file("pictures");
  fs::create_directory(pictures);
  for (int i = 8; i < 12; ++i) {
    cv::imwrite(pictures + "/img" + std::to_string(i) + ".png", cv::Mat(40, 40 + i, CV_8UC3, cv::Scalar::all(9)));
  }
  writeText(pictures + "/notes.txt", "not a picture");
  for (const std::string& source : std::vector<std::string>{pictures, pictures + "/img%d.png"}) {
    const ProgramResult result =
        runProgram({"track", source, "--box", "1,1,9,9", "--plugin", CSRT_FAKE_PLUGIN, "--records", "-", "--quiet",
                    "--fps", "5", "--still", folder_->file("s.png")});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<Json> records = recordsOf(result.out);
    ASSERT_EQ(records.size(), 4U) << source;
    EXPECT_DOUBLE_EQ(records[1]["time_s"].get<double>(), 0.2);
    EXPECT_EQ(cv::imread(folder_->file("s.png")).cols, 51) << "the last picture is number 11";
  }
}

TEST_F(TrackCommand, SeveralTargetsKeepTheirNamesAndOrder) {
  const std::vector<std::string> more = {"--records",        "-",     "--quiet",        "--frames", "5", "--box",
                                         "car=100,50,20,20", "--set", "fake.script=tup"};
  const ProgramResult one = run(more, "walker=10,20,30,40");
  std::vector<std::string> threaded = more;
  threaded.insert(threaded.end(), {"--threads", "3"});
  const ProgramResult three = run(threaded, "walker=10,20,30,40");
  const std::vector<Json> records = recordsOf(one.out);
  ASSERT_EQ(records.size(), 10U);
  EXPECT_EQ(records[2]["target"], "walker");
  EXPECT_EQ(records[3]["target"], "car");
  EXPECT_EQ(records[3]["box"]["x"], 101);
  EXPECT_EQ(withoutTimes(records), withoutTimes(recordsOf(three.out)));
}

TEST_F(TrackCommand, ATargetThatDoesNotStartDoesNotDisturbTheOthers) {
  const ProgramResult result = run({"--records", "-", "--quiet", "--box", "far=9000,1,5,5"}, "near=10,20,30,40");
  expectOneSentence({result.status, "", result.err}, 5, "'far'");
  std::map<std::string, int> lines;
  for (const Json& record : recordsOf(result.out)) ++lines[record["target"].get<std::string>()];
  EXPECT_EQ(lines["near"], kFrames);
  EXPECT_EQ(lines["far"], 1);
}

TEST_F(TrackCommand, EachFailureHasItsStatusAndOneSentence) {
  const std::string noFolder = folder_->file("nowhere/file");
  const std::string junk = folder_->file("junk.avi");
  writeText(junk, std::string(5000, '\1'));
  const std::string text = folder_->file("notes.txt");
  writeText(text, "hello\n");
  const std::string notJson = folder_->file("bad.json");
  writeText(notJson, "{\"roi\":");
  const std::string list = folder_->file("list.json");
  writeText(list, "[1]");
  const std::string empty = folder_->file("empty");
  fs::create_directory(empty);
  const auto source = [](const std::string& name) {
    return runProgram({"track", name, "--box", "1,1,9,9", "--plugin", CSRT_FAKE_PLUGIN});
  };
  expectOneSentence(source(folder_->file("missing.avi")), 3, "missing.avi");
  expectOneSentence(source(junk), 3, junk);
  expectOneSentence(source(text), 3, text);
  expectOneSentence(source(empty), 3, empty);
  expectOneSentence(source(empty + "/%03d.png"), 3, "%03d.png");
  expectOneSentence(run({"--start", "5000"}), 3, "5000");
  expectOneSentence(run({"--start", "-1"}), 2, "-1");
  expectOneSentence(run({"--frames", "-2"}), 2, "-2");
  expectOneSentence(run({"--frames", "many"}), 2, "many");
  expectOneSentence(run({"--fps", "-3"}), 2, "-3");
  expectOneSentence(run({"--threads", "0"}), 2, "--threads 0");
  expectOneSentence(run({"--nonsense"}), 2, "--nonsense");
  expectOneSentence(run({}, ""), 2, "--box");
  expectOneSentence(run({}, "1,2,3"), 2, "'1,2,3'");
  expectOneSentence(run({"--box", "a=1,1,2,2"}, "a=1,1,2,2"), 2, "'a'");
  expectOneSentence(run({}, "9000,1,5,5"), 5, "9000,1,5,5");
  expectOneSentence(run({"--plugin", noFolder}), 2, "--plugin");  // given twice
  expectOneSentence(run({"--config", noFolder}), 2, noFolder);
  expectOneSentence(run({"--config", notJson}), 2, notJson);
  expectOneSentence(run({"--config", list}), 2, list);
  expectOneSentence(run({"--set", "roi"}), 2, "'roi'");
  expectOneSentence(run({"--records", noFolder}), 2, noFolder);
  expectOneSentence(run({"--video", noFolder + ".mp4"}), 2, noFolder);
  expectOneSentence(run({"--still", noFolder + ".png"}), 2, noFolder);
  expectOneSentence(run({"--still", folder_->file("a.xyz")}), 2, "a.xyz");
  expectOneSentence(run({"--records", "/dev/full", "--quiet"}), 6, "/dev/full");
}

TEST_F(TrackCommand, APluginThatCannotBeLoadedIsNamed) {
  const auto plugin = [](const std::string& path) {
    return runProgram({"track", video_, "--box", "1,1,9,9", "--plugin", path});
  };
  expectOneSentence(plugin(folder_->file("none.so")), 4, "none.so");
  expectOneSentence(plugin(video_), 4, video_);
  expectOneSentence(plugin(folder_->file("")), 4, folder_->file(""));
}

TEST_F(TrackCommand, AnInterruptedRunLeavesWholeRecordsAndAPlayableVideo) {
  const std::string longVideo = folder_->file("long.avi");
  host::writeStreetScene(longVideo, kSize, 3000, 10.0);
  for (const int signal : {SIGINT, SIGTERM}) {
    const std::string video = folder_->file("interrupted" + videoEnding());
    const std::string records = folder_->file("interrupted.jsonl");
    fs::remove(records);
    Program program(
        {"track", longVideo, "--box", "1,1,9,9", "--plugin", CSRT_FAKE_PLUGIN, "--video", video, "--records", records});
    while (linesOf(textOf(records)).size() < 10 && !program.ended()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    program.signal(signal);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.status, 128 + signal) << result.err;
    const std::string text = textOf(records);
    EXPECT_EQ(text.back(), '\n');
    const std::size_t lines = recordsOf(text).size();
    EXPECT_LT(lines, 3000U) << "the run was over before the signal";
    cv::VideoCapture capture(video);
    std::size_t frames = 0;
    for (cv::Mat frame; capture.read(frame);) ++frames;
    EXPECT_EQ(frames, lines);
  }
}

/// A file may grow to this size and no further, as on a full disk.
class SmallFiles {
 public:
  explicit SmallFiles(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit small{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    std::signal(SIGXFSZ, SIG_IGN);  // inherited: the write then fails instead
  }
  ~SmallFiles() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, SIG_DFL);
  }
  SmallFiles(const SmallFiles&) = delete;
  SmallFiles& operator=(const SmallFiles&) = delete;

 private:
  rlimit before_{};
};

TEST_F(TrackCommand, WhereNoMoreCanBeWrittenTheRecordsEndWithAWholeLine) {
  const std::string records = folder_->file("cut.jsonl");
  const SmallFiles limit(4000);
  expectOneSentence(run({"--records", records, "--quiet"}), 6, records);
  const std::string text = textOf(records);
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.back(), '\n');
  EXPECT_GT(recordsOf(text).size(), 3U);
  EXPECT_LT(recordsOf(text).size(), static_cast<std::size_t>(kFrames));
}

TEST_F(TrackCommand, AStillThatCannotBeWrittenIsNamed) {
  const SmallFiles limit(500);
  expectOneSentence(run({"--still", folder_->file("cut.png"), "--quiet"}), 6, "cut.png");
}

TEST_F(TrackCommand, TracksWithTheRealPluginBesideTheProgram) {
  const ProgramResult result = runProgram({"track", video_, "--box", "63,82,16,30", "--records", "-", "--quiet"});
  EXPECT_EQ(result.status, 0) << result.err;
  const std::vector<Json> records = recordsOf(result.out);
  ASSERT_EQ(records.size(), static_cast<std::size_t>(kFrames));
  const cv::Rect truth = host::StreetScene(kSize, 20240607).truth(10);
  const Json box = records[10]["box"];
  const cv::Rect found(box["x"], box["y"], box["w"], box["h"]);
  EXPECT_EQ(records[10]["state"], "tracked");
  EXPECT_GT((truth & found).area(), truth.area() / 2) << truth << found;
}

}  // namespace
}  // namespace host_test
