// What does a start cost, with and without refining the box? Budget: none; a start happens once.
#include <benchmark/benchmark.h>

#include "bench_support.h"

namespace {

using bench::MovingTarget;
using bench::OpenAlgo;
using bench::Samples;
using bench::timeOf;

void report(benchmark::State& state, const std::string& name, const Samples& samples) {
  state.counters[name + "_ms"] = samples.median();
  state.counters[name + "_p95_ms"] = samples.p95();
  state.counters[name + "_cpu_ms"] = samples.cpuMedian();
}

// In turn: a plain start, one that refines the box, and the start of the bare tracker on the whole frame.
void BM_Init(benchmark::State& state) {
  MovingTarget scene({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}, {60, 60});
  OpenAlgo plain;
  OpenAlgo refining;
  refining.setConfig(R"({"input": {"refine_init": true}})");
  Samples plainTime;
  Samples refiningTime;
  Samples bareTime;
  for (auto _ : state) {
    const bench::Moment time = timeOf([&] { plain.start(scene); });
    plainTime.add(time);
    refiningTime.add(timeOf([&] { refining.start(scene); }));
    const auto bare = bench::bareTracker(plain);
    bareTime.add(timeOf([&] { bare->init(scene.pixels(), scene.box()); }));
    state.SetIterationTime(time.wall / 1e3);
  }
  report(state, "init", plainTime);
  report(state, "refined", refiningTime);
  report(state, "bare_whole_frame", bareTime);
}

BENCHMARK(BM_Init)
    ->ArgNames({"w", "h"})
    ->Args({640, 360})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Iterations(bench::steps(20))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
