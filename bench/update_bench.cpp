// What does one frame cost, and what of it does the plug-in add to CSRT itself?
// Budget: a tracked frame at most 1.02 times the bare tracker's step on the same crop; a small target in a frame of
// 3840 x 2160 at least 3 times faster than bare CSRT on that frame, 1.3 times at 1920 x 1080; the slowest lost frame
// at most 2.5 times a tracked one at 1920 x 1080, 3 times at 3840 x 2160.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "bench_support.h"

namespace {

using bench::MovingTarget;
using bench::OpenAlgo;
using bench::Samples;
using bench::timeOf;

constexpr double kOnTarget = 0.5;  // overlap from which a time counts

cv::Size frameOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

void report(benchmark::State& state, const std::string& name, const Samples& samples) {
  state.counters[name + "_ms"] = samples.median();
  state.counters[name + "_p95_ms"] = samples.p95();
  state.counters[name + "_cpu_ms"] = samples.cpuMedian();
  state.counters[name + "_cpu_p95_ms"] = samples.cpuP95();
}

// The bare tracker steps on a copy of the very pixels that the plug-in's own tracker saw, from the same start.
void BM_UpdateTracked(benchmark::State& state) {
  MovingTarget scene(frameOf(state), {60, 60});
  OpenAlgo algo;
  algo.start(scene);
  const auto bare = bench::bareTracker(algo);
  bare->init(algo.initCrop_, algo.initBoxInCrop_);
  const auto watched = algo.watch();
  Samples plugin;
  Samples alone;
  Samples inside;
  cv::Mat crop;
  cv::Rect box;
  for (auto _ : state) {
    scene.next();
    const bench::Moment whole = timeOf([&] { benchmark::DoNotOptimize(algo.step(scene)); });
    plugin.add(whole);
    inside.add(watched->spent);
    watched->pixels.copyTo(crop);
    alone.add(timeOf([&] { benchmark::DoNotOptimize(bare->update(crop, box)); }));
    state.SetIterationTime(whole.wall / 1e3);
  }
  if (bench::overlap(algo.trackBox_, scene.box()) < kOnTarget)
    state.SkipWithError("target lost: the time means nothing");
  if (box + algo.procRoi_.tl() != algo.trackBox_) state.SkipWithError("the two trackers saw different pixels");
  report(state, "update", plugin);
  report(state, "bare", alone);
  state.counters["ratio"] = bench::medianRatio(plugin, alone);
  state.counters["ratio_same_call"] = bench::medianRatio(plugin, inside);
}

// Three that see the same target, step by step in turn: the plug-in in the large frame, bare CSRT on all of that
// frame, and the plug-in in a small frame.
void BM_SmallTarget(benchmark::State& state) {
  const cv::Size target(static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
  MovingTarget scene(frameOf(state), target);
  MovingTarget smallScene({640, 360}, target);
  OpenAlgo algo;
  OpenAlgo smallAlgo;
  algo.start(scene);
  smallAlgo.start(smallScene);
  const auto bare = bench::bareTracker(algo);
  bare->init(scene.pixels(), scene.box());
  Samples plugin;
  Samples whole;
  Samples small;
  cv::Rect box;
  for (auto _ : state) {
    scene.next();
    smallScene.next();
    plugin.add(timeOf([&] { benchmark::DoNotOptimize(algo.step(scene)); }));
    whole.add(timeOf([&] { benchmark::DoNotOptimize(bare->update(scene.pixels(), box)); }));
    small.add(timeOf([&] { benchmark::DoNotOptimize(smallAlgo.step(smallScene)); }));
    state.SetIterationTime(plugin.median() / 1e3);
  }
  if (bench::overlap(algo.trackBox_, scene.box()) < kOnTarget || bench::overlap(box, scene.box()) < kOnTarget) {
    state.SkipWithError("target lost: the time means nothing");
  }
  report(state, "update", plugin);
  report(state, "whole_frame", whole);
  state.counters["faster"] = bench::medianRatio(whole, plugin);
  state.counters["of_small_frame"] = bench::medianRatio(plugin, small);
}

// The tracker on the whole frame, as if there were no window: what a frame costs beside the small one.
void BM_WholeFrame(benchmark::State& state) {
  MovingTarget scene(frameOf(state), {60, 60});
  MovingTarget smallScene({640, 360}, {60, 60});
  OpenAlgo algo;
  OpenAlgo smallAlgo;
  for (OpenAlgo* each : {&algo, &smallAlgo}) each->setConfig(R"({"roi": {"enable": false}})");
  algo.start(scene);
  smallAlgo.start(smallScene);
  Samples plugin;
  Samples small;
  for (auto _ : state) {
    scene.next();
    smallScene.next();
    plugin.add(timeOf([&] { benchmark::DoNotOptimize(algo.step(scene)); }));
    small.add(timeOf([&] { benchmark::DoNotOptimize(smallAlgo.step(smallScene)); }));
    state.SetIterationTime(plugin.median() / 1e3);
  }
  if (bench::overlap(algo.trackBox_, scene.box()) < kOnTarget) state.SkipWithError("target lost");
  report(state, "update", plugin);
  state.counters["of_small_frame"] = bench::medianRatio(plugin, small);
}

// Which exit one call of update() took.
enum class Exit { Tracked, Predicted, SearchFailed, Found };

// Rounds of: six tracked frames; the target jumps, is searched for on the first frame and found; six tracked frames;
// the target is hidden for two frames, each searched in vain; it comes back.
class LostRounds {
 public:
  explicit LostRounds(const cv::Size& frame) : scene_(frame, {60, 60}) {
    algo_.setConfig(R"({"redetect": {"frames_lost_before_reset": 1, "max_redetect_attempts": 1000000}})");
    algo_.start(scene_);
  }

  bool run() {
    track(6);
    scene_.jump(right_ ? cv::Point(-190, 0) : cv::Point(190, 0));
    right_ = !right_;
    step(found);
    if (bench::overlap(algo_.trackBox_, scene_.box()) < kOnTarget) return false;
    track(8);
    scene_.hide();
    for (int i = 0; i < 2; ++i) step(searchedInVain);
    scene_.show();
    step(back);
    return bench::overlap(algo_.trackBox_, scene_.box()) >= kOnTarget;
  }

  Samples tracked;
  Samples found;
  Samples searchedInVain;
  Samples back;

 private:
  void track(int frames) {
    for (int i = 0; i < frames; ++i) step(tracked);
  }
  void step(Samples& samples) {
    scene_.next();
    samples.add(timeOf([&] { benchmark::DoNotOptimize(algo_.step(scene_)); }));
  }

  MovingTarget scene_;
  OpenAlgo algo_;
  bool right_ = false;
};

void BM_UpdateLost(benchmark::State& state) {
  LostRounds rounds(frameOf(state));
  for (auto _ : state) {
    const bench::Moment round = timeOf([&] {
      if (!rounds.run()) state.SkipWithError("target not found again: the time means nothing");
    });
    state.SetIterationTime(round.wall / 1e3);
  }
  report(state, "tracked", rounds.tracked);
  report(state, "found", rounds.found);
  report(state, "searched", rounds.searchedInVain);
  report(state, "back", rounds.back);
}

// Standard output thrown away while this lives: the log goes there, and so would the terminal's cost.
class SilentOutput {
 public:
  SilentOutput() {
    std::fflush(stdout);
    std::cout.flush();
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  SilentOutput(const SilentOutput&) = delete;
  SilentOutput& operator=(const SilentOutput&) = delete;
  ~SilentOutput() {
    std::fflush(stdout);
    std::cout.flush();
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }

 private:
  int kept_ = dup(STDOUT_FILENO);
};

// Two that see the same frames, step by step in turn; one writes its log. With it the record holds the window, too.
void BM_UpdateDebug(benchmark::State& state) {
  MovingTarget scene({640, 360}, {60, 60});
  MovingTarget talkingScene({640, 360}, {60, 60});
  OpenAlgo quiet;
  OpenAlgo talking;
  quiet.start(scene);
  talking.start(talkingScene);
  const auto quietTracker = quiet.watch();
  const auto talkingTracker = talking.watch();
  Samples around;
  Samples aroundTalking;
  for (auto _ : state) {
    scene.next();
    talkingScene.next();
    const bench::Moment off = timeOf([&] { benchmark::DoNotOptimize(quiet.step(scene)); });
    const SilentOutput silence;
    talking.enableDebug(true);
    const bench::Moment on = timeOf([&] { benchmark::DoNotOptimize(talking.step(talkingScene)); });
    talking.enableDebug(false);
    around.add(off - quietTracker->spent);
    aroundTalking.add(on - talkingTracker->spent);
    state.SetIterationTime(off.wall / 1e3);
  }
  if (quiet.trackBox_ != talking.trackBox_) state.SkipWithError("the log changed the answer");
  if (bench::overlap(quiet.trackBox_, scene.box()) < kOnTarget) state.SkipWithError("target lost");
  report(state, "around_off", around);
  report(state, "around_on", aroundTalking);
}

BENCHMARK(BM_UpdateTracked)
    ->ArgNames({"w", "h"})
    ->Args({640, 360})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Iterations(bench::steps(50))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_SmallTarget)
    ->ArgNames({"w", "h", "box_w", "box_h"})
    ->ArgsProduct({{640}, {360}, {40}, {30}})
    ->ArgsProduct({{640}, {360}, {60}, {60}})
    ->ArgsProduct({{1920}, {1080}, {40}, {30}})
    ->ArgsProduct({{1920}, {1080}, {60}, {60}})
    ->ArgsProduct({{3840}, {2160}, {40}, {30}})
    ->ArgsProduct({{3840}, {2160}, {60}, {60}})
    ->Iterations(bench::steps(40))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_WholeFrame)
    ->ArgNames({"w", "h"})
    ->Args({640, 360})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Iterations(bench::steps(40))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_UpdateLost)
    ->ArgNames({"w", "h"})
    ->Args({640, 360})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Iterations(bench::steps(8))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_UpdateDebug)->Iterations(bench::steps(100))->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
