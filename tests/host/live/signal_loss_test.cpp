// A run over a live source whose signal goes and comes back: what is said meanwhile, and the target afterwards.
#include <gtest/gtest.h>

#include <vector>

#include "picture/street_scene.h"
#include "plugin/plugin_library.h"
#include "run/track_run.h"

namespace host {
namespace {

const cv::Size kSize(640, 360);
constexpr double kFrameS = 0.04;

double overlap(const cv::Rect& a, const cv::Rect& b) {
  const double both = (a & b).area();
  return both / (a.area() + b.area() - both);
}

/// The street, as a camera sends it: frames up to a loss, the word that none come, and frames again.
class LosingSource : public FrameSource {
 public:
  LosingSource(int lostAt, int backAt, int end) : lostAt_(lostAt), backAt_(backAt), end_(end) {}

  bool read(SourceFrame& frame) override {
    frame = {};
    if (next_ == lostAt_ && said_ < 3) {
      ++said_;
      frame.index = lostAt_ - 1;
      frame.time_s = lostAt_ * kFrameS + said_;
      frame.noSignal = true;
      return true;
    }
    if (next_ == lostAt_) next_ = backAt_;
    if (next_ >= end_) return false;
    frame.index = next_;
    frame.time_s = next_ * kFrameS;
    frame.bgr = scene_.frame(next_);
    frame.live = LiveFacts{};
    ++next_;
    return true;
  }
  double fps() const override { return 1 / kFrameS; }
  long expected() const override { return 0; }
  cv::Rect truth(long index) const { return scene_.truth(static_cast<int>(index)); }

 private:
  StreetScene scene_{kSize, kStreetSceneSeed};
  int lostAt_;
  int backAt_;
  int end_;
  int next_ = 0;
  int said_ = 0;
};

/// Keeps every record.
class Keeper : public RunObserver {
 public:
  void begin(const RunInfo& /*info*/) override {}
  void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& records) override {
    seen.push_back(records.at(0));
  }
  void noSignal(const std::vector<CallRecord>& records) override { silent.push_back(records.at(0)); }
  void end() override {}

  std::vector<CallRecord> seen;
  std::vector<CallRecord> silent;
};

Keeper follow(LosingSource& source) {
  PluginLibrary library(CSRT_REAL_PLUGIN);
  TrackRun run;
  run.sourceName = "rtsp://camera/street";
  const cv::Rect start = source.truth(0);
  run.targets.push_back({"figure", BBox{start.x, start.y, start.width, start.height}});
  run.pace = Pace::Video;
  Keeper keeper;
  runTrack(source, library, run, {&keeper});
  return keeper;
}

TEST(SignalLoss, TheLastBoxIsKeptAsPredictedAndThePlugInIsNotCalled) {
  LosingSource source(20, 22, 30);
  const Keeper keeper = follow(source);
  ASSERT_EQ(keeper.silent.size(), 3U);
  ASSERT_EQ(keeper.seen.size(), 28U);
  const CallRecord& last = keeper.seen[19];
  ASSERT_TRUE(last.box);
  double before = -1;
  for (const CallRecord& record : keeper.silent) {
    EXPECT_TRUE(record.noSignal);
    EXPECT_EQ(record.frame, 19);
    EXPECT_EQ(record.box, last.box);
    EXPECT_NE(record.framesSinceSeen, 0) << "nobody saw it there";
    EXPECT_GT(record.secondsSinceSeen.value(), before) << "its time goes on";
    before = record.secondsSinceSeen.value();
    const nlohmann::ordered_json json = toJson(record);
    EXPECT_EQ(json["call"], "none");
    EXPECT_EQ(json["no_signal"], true);
  }
  EXPECT_EQ(keeper.seen[20].frame, 22);
  EXPECT_GT(overlap(keeper.seen.back().box.value(), source.truth(29)), 0.5) << "it hardly moved meanwhile";
}

TEST(SignalLoss, ATargetThatWentOnMeanwhileIsFoundAgain) {
  LosingSource source(20, 60, 110);
  const Keeper keeper = follow(source);
  ASSERT_LT(overlap(source.truth(19), source.truth(60)), 0.01) << "it is elsewhere when the signal comes back";
  const CallRecord& end = keeper.seen.back();
  ASSERT_TRUE(end.box) << "given up";
  EXPECT_EQ(end.framesSinceSeen, 0);
  EXPECT_GT(overlap(*end.box, source.truth(109)), 0.3);
}

}  // namespace
}  // namespace host
