// The loop of every run, with a source, sessions and observers that write down who was called when.
#include "run/run_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/host_error.h"

namespace host {
namespace {

using Words = std::vector<std::string>;

class FakeSource : public FrameSource {
 public:
  FakeSource(Words& said, int frames) : said_(said), frames_(frames) {}
  bool read(SourceFrame& frame) override {
    said_.push_back("read");
    if (next_ == throwAt) throw HostError(ExitCode::Source, "the cable is out");
    if (next_ >= frames_) return false;
    frame = {};
    frame.index = first + next_++;
    frame.time_s = static_cast<double>(frame.index) / 10;
    frame.noSignal = silentAt.count(frame.index) > 0;
    if (!frame.noSignal) frame.bgr = cv::Mat(8, 16, CV_8UC3, cv::Scalar::all(0));
    frame.file = "picture.png";
    frame.note = "damaged";
    frame.metadata["pan_deg"] = 5.0;
    if (live) frame.live = LiveFacts{0.0, true, 3, {{"tilt_deg", 7.0}}};
    return true;
  }
  double fps() const override { return 10; }
  long expected() const override { return 99; }
  std::vector<std::string> faults() const override { return {"it ended early"}; }

  int first = 0;
  int throwAt = -1;
  bool live = false;
  std::set<long> silentAt;

 private:
  Words& said_;
  int next_ = 0;
  int frames_;
};

class FakeSession : public RunSession {
 public:
  explicit FakeSession(std::string name) : name_(std::move(name)) {}
  CallRecord step(const FramePicture& picture, const SourceFrame& frame) override {
    lastPicture = picture;
    if (steps++ == throwAt) throw std::runtime_error("the tracker fell over");
    CallRecord record;
    record.target = name_;
    record.frame = frame.index;
    return record;
  }
  std::atomic<int> steps{0};
  int throwAt = -1;
  FramePicture lastPicture;

 private:
  std::string name_;
};

class FakeDirector : public RunDirector {
 public:
  explicit FakeDirector(Words& said) : said_(said) {}
  void begin(const SourceFrame& first, RunInfo& info) override {
    said_.push_back("director begins on " + std::to_string(first.index));
    info.source = "a fake";
  }
  std::vector<RunSession*> sessions(SourceFrame& /*frame*/) override {
    std::vector<RunSession*> all;
    for (const auto& session : cast) all.push_back(session.get());
    return all;
  }
  void answered(const SourceFrame& frame, std::vector<CallRecord>& records) override {
    said_.push_back("answered " + std::to_string(frame.index));
    for (CallRecord& record : records) record.reason = "looked at";
  }
  bool goesOn(const SourceFrame& frame, const std::vector<CallRecord>& records, RunObserver& told) override {
    if (frame.index == restartOn) told.restarted(records.front());
    return frame.index != stopOn;
  }

  std::vector<std::unique_ptr<FakeSession>> cast;
  long stopOn = -1;
  long restartOn = -1;

 private:
  Words& said_;
};

class FakeObserver : public RunObserver {
 public:
  FakeObserver(Words& said, std::string name) : said_(said), name_(std::move(name)) {}
  void begin(const RunInfo& info) override {
    known = info;
    say_("begins", beginFault);
  }
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override {
    all.insert(all.end(), records.begin(), records.end());
    say_("sees " + std::to_string(frame.index), frameFault);
  }
  void noSignal(const std::vector<CallRecord>& records) override {
    all.insert(all.end(), records.begin(), records.end());
    say_("sees nothing", {});
  }
  void restarted(const CallRecord& /*record*/) override { say_("hears of a start", {}); }
  void end() override { say_("ends", endFault); }

  std::string beginFault;
  std::string frameFault;
  std::string endFault;
  RunInfo known;
  std::vector<CallRecord> all;

 private:
  void say_(const std::string& what, const std::string& fault) {
    said_.push_back(name_ + " " + what);
    if (!fault.empty()) throw HostError(ExitCode::Output, fault);
  }
  Words& said_;
  std::string name_;
};

class RunLoop : public testing::Test {
 protected:
  RunLoop() { director_.cast.push_back(std::make_unique<FakeSession>("one")); }

  RunResult run(FakeSource& source) {
    return runLoop({source, director_, {&a_, &b_}, Pace::Fast, threads_, [this] { return over_ && over_(); }});
  }
  RunResult run(int frames) {
    FakeSource source(said_, frames);
    return run(source);
  }
  /// The error that comes out; empty: none.
  std::string errorOf(FakeSource& source) {
    try {
      run(source);
    } catch (const std::exception& e) {
      return e.what();
    }
    return {};
  }
  std::string errorOf(int frames) {
    FakeSource source(said_, frames);
    return errorOf(source);
  }
  long count(const std::string& word) const { return std::count(said_.begin(), said_.end(), word); }

  Words said_;
  FakeDirector director_{said_};
  FakeObserver a_{said_, "a"};
  FakeObserver b_{said_, "b"};
  int threads_ = 1;
  std::function<bool()> over_;
};

TEST_F(RunLoop, CallsEveryoneInOrderAndTheAnswerComesBeforeTheNextFrameIsRead) {
  const RunResult result = run(2);
  EXPECT_EQ(said_, (Words{"read", "director begins on 0", "a begins", "b begins",                  //
                          "answered 0", "a sees 0", "b sees 0", "read", "answered 1", "a sees 1",  //
                          "b sees 1", "read", "b ends", "a ends"}));
  EXPECT_EQ(result.frames, 2);
  EXPECT_FALSE(result.interrupted);
  EXPECT_EQ(result.frameSize, cv::Size(16, 8));
  EXPECT_EQ(result.sourceFaults, Words{"it ended early"});
}

TEST_F(RunLoop, TellsWhatTheSourceAndTheDirectorKnow) {
  FakeSource source(said_, 1);
  source.first = 40;
  run(source);
  EXPECT_EQ(a_.known.source, "a fake");
  EXPECT_EQ(a_.known.frameSize, cv::Size(16, 8));
  EXPECT_EQ(a_.known.fps, 10);
  EXPECT_EQ(a_.known.firstFrame, 40);
  EXPECT_EQ(a_.known.expectedFrames, 99);
  ASSERT_EQ(a_.all.size(), 1U);
  EXPECT_EQ(a_.all[0].file, "picture.png");
  EXPECT_EQ(a_.all[0].sourceNote, "damaged");
  EXPECT_EQ(a_.all[0].reason, "looked at") << "what the director adds is there before observers look";
}

TEST_F(RunLoop, ASourceWithoutAFrameBeginsNothing) {
  const RunResult result = run(0);
  EXPECT_EQ(said_, Words{"read"});
  EXPECT_EQ(result.frames, 0);
}

TEST_F(RunLoop, AnInterruptedRunEndsItsObserversInOrder) {
  over_ = [this] { return count("b sees 1") > 0; };
  const RunResult result = run(5);
  EXPECT_TRUE(result.interrupted);
  EXPECT_EQ(result.frames, 2);
  EXPECT_EQ(count("read"), 2) << "nothing is read after it";
  EXPECT_EQ(Words(said_.end() - 2, said_.end()), (Words{"b ends", "a ends"}));
}

TEST_F(RunLoop, TheDirectorEndsARunAfterTheObserversHaveSeenTheFrame) {
  director_.stopOn = 0;
  const RunResult result = run(5);
  EXPECT_EQ(result.frames, 1);
  EXPECT_FALSE(result.interrupted);
  EXPECT_EQ(count("b sees 0"), 1);
  EXPECT_EQ(count("a ends"), 1);
}

TEST_F(RunLoop, AnObserverThatThrowsEndsTheRunAndAllOthersEnd) {
  a_.frameFault = "the disk is full";
  EXPECT_EQ(errorOf(5), "the disk is full");
  EXPECT_EQ(count("b sees 0"), 0);
  EXPECT_EQ(count("read"), 1);
  EXPECT_EQ(Words(said_.end() - 2, said_.end()), (Words{"b ends", "a ends"}));
}

TEST_F(RunLoop, AnObserverThatDidNotBeginIsNotEnded) {
  b_.beginFault = "no such folder";
  EXPECT_EQ(errorOf(5), "no such folder");
  EXPECT_EQ(count("a ends"), 1);
  EXPECT_EQ(count("b ends"), 0);
}

TEST_F(RunLoop, TheFirstErrorIsTheOneThatCounts) {
  a_.endFault = "cannot be closed";
  b_.endFault = "cannot be closed either";
  EXPECT_EQ(errorOf(1), "cannot be closed either");
  EXPECT_EQ(count("a ends") + count("b ends"), 2) << "each is ended once";
  said_.clear();
  b_.frameFault = "the disk is full";
  EXPECT_EQ(errorOf(1), "the disk is full");
  EXPECT_EQ(count("a ends") + count("b ends"), 2);
}

TEST_F(RunLoop, ASourceOrASessionThatThrowsLeavesOutputsEnded) {
  FakeSource source(said_, 5);
  source.throwAt = 2;
  EXPECT_EQ(errorOf(source), "the cable is out");
  EXPECT_EQ(count("a ends") + count("b ends"), 2);
  said_.clear();
  director_.cast.front()->throwAt = director_.cast.front()->steps;
  EXPECT_EQ(errorOf(5), "the tracker fell over");
  EXPECT_EQ(count("a ends") + count("b ends"), 2);
}

TEST_F(RunLoop, RecordsStandInTheOrderOfTheSessionsWhateverTheThreads) {
  for (const char* name : {"two", "three", "four", "five"})
    director_.cast.push_back(std::make_unique<FakeSession>(name));
  threads_ = 3;
  run(20);
  ASSERT_EQ(a_.all.size(), 100U);
  const Words names = {"one", "two", "three", "four", "five"};
  for (std::size_t i = 0; i < a_.all.size(); ++i) EXPECT_EQ(a_.all[i].target, names[i % 5]) << i;
}

TEST_F(RunLoop, AMomentWithoutAFrameIsNoFrame) {
  FakeSource source(said_, 3);
  source.silentAt = {1};
  const RunResult result = run(source);
  EXPECT_EQ(result.frames, 2);
  EXPECT_EQ(director_.cast.front()->steps, 2) << "nobody works on it";
  EXPECT_EQ(count("a sees nothing"), 1);
  EXPECT_EQ(count("answered 1"), 1);
  ASSERT_EQ(a_.all.size(), 3U);
  EXPECT_TRUE(a_.all[1].noSignal);
}

TEST_F(RunLoop, EverybodyHearsOfAStartInBetween) {
  director_.restartOn = 0;
  run(2);
  EXPECT_EQ(count("a hears of a start") + count("b hears of a start"), 2);
}

TEST_F(RunLoop, TheCameraSWordsReachTheTrackerAndLiveFactsTheRecords) {
  FakeSource source(said_, 1);
  source.live = true;
  run(source);
  const FramePicture picture = director_.cast.front()->lastPicture;
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(std::get<double>(picture->baseMetadata().at("pan_deg")), 5.0);
  EXPECT_EQ(std::get<double>(picture->baseMetadata().at("tilt_deg")), 7.0);
  ASSERT_EQ(a_.all.size(), 1U);
  EXPECT_EQ(a_.all[0].dropped, 3);
  EXPECT_TRUE(a_.all[0].ageFromSender);
  EXPECT_GT(a_.all[0].ageMs.value_or(0.0), 0.0);
}

}  // namespace
}  // namespace host
