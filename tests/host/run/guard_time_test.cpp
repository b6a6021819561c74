// A guard counts frames: time stamps that jump, go back or stand still change nothing of what it decides.
//
// The plug-in's own rules in seconds do hear of such stamps under --pace video, where its clock follows them: a target
// that moves while time stands still is too fast for it. So here its clock goes on evenly, frame by frame, as a
// machine's does, whatever the stamps say.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "input/frame_clock.h"
#include "picture/street_scene.h"
#include "run/track_run.h"
#include "support/record_schema.h"

namespace host_test {
namespace {

using Json = nlohmann::ordered_json;
using Stamp = std::function<double(long)>;  // seconds, of a frame

constexpr long kFirst = 60;
constexpr long kEnd = 170;
constexpr double kFps = 25.0;

/// A figure that goes behind a sign and comes out again.
class StampedScene : public host::FrameSource {
 public:
  explicit StampedScene(Stamp stamp) : stamp_(std::move(stamp)) {}
  bool read(host::SourceFrame& frame) override {
    clock_.reset();
    if (next_ == kEnd) return false;
    frame = {};
    frame.index = next_++;
    frame.time_s = stamp_(frame.index);
    frame.bgr = scene_.frame(static_cast<int>(frame.index));
    clock_.emplace(static_cast<double>(frame.index) / kFps);  // until the next frame is asked for
    return true;
  }
  double fps() const override { return kFps; }
  long expected() const override { return kEnd - kFirst; }

 private:
  Stamp stamp_;
  host::StreetScene scene_{{640, 360}, host::kStreetSceneSeed, 90};
  std::optional<host::FrameClock> clock_;
  long next_ = kFirst;
};

class Collector : public host::RunObserver {
 public:
  void frame(const host::SourceFrame& frame, const std::vector<host::CallRecord>& records) override {
    for (const host::CallRecord& record : records) {
      all.push_back(toJson(record));
      EXPECT_EQ(recordFault(all.back()), "") << all.back();
      EXPECT_NEAR(record.time_s, frame.time_s, 1e-6) << "the stamp did not come this far";
    }
  }
  std::vector<Json> all;
};

/// The records of a guarded run, without what is a time.
std::vector<Json> timelessRecords(const Stamp& stamp) {
  StampedScene source(stamp);
  host::PluginLibrary library(CSRT_FAST_PLUGIN);
  host::TrackRun run;
  run.sourceName = "drawn";
  run.targets = {{"figure", BBox{236, 171, 32, 60}}};
  run.guard.kind = host::GuardKind::Colour;
  Collector collector;
  host::runTrack(source, library, run, {&collector});
  for (Json& record : collector.all) {
    for (const char* key : {"time_s", "seconds_since_seen", "update_ms"}) record.erase(key);
  }
  return collector.all;
}

double even(long frame) {
  return static_cast<double>(frame) / kFps;
}

class GuardTime : public testing::Test {
 protected:
  static void SetUpTestSuite() { even_ = timelessRecords(even); }

  static void expectSameWith(const Stamp& stamp) {
    const std::vector<Json> records = timelessRecords(stamp);
    ASSERT_EQ(records.size(), even_.size());
    for (std::size_t i = 0; i < records.size(); ++i) ASSERT_EQ(records[i], even_[i]);
  }

  static inline std::vector<Json> even_;
};

TEST_F(GuardTime, TheGuardHasWorkInTheseFrames) {
  std::set<std::string> states;
  for (const Json& record : even_) {
    if (record.contains("guard")) states.insert(record["guard"]["state"]);
  }
  EXPECT_EQ(states, (std::set<std::string>{"agreed", "doubted", "searching", "reacquired"}));
}

TEST_F(GuardTime, MayGoBack) {
  expectSameWith([](long frame) { return 5000.0 - even(frame); });
}

TEST_F(GuardTime, MayJumpByAnHourAndBack) {
  expectSameWith([](long frame) { return even(frame) + (frame / 7 % 2 == 0 ? 0.0 : 3600.0); });
}

TEST_F(GuardTime, MayStandStill) {
  expectSameWith([](long frame) { return even(frame / 10 * 10); });
}

}  // namespace
}  // namespace host_test
