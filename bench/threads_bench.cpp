// Do several plug-in objects, each in a thread of its own, get in each other's way?
// Budget: two targets in two threads on two idle cores at least 1.8 times the frames of one; no thread ever waits for
// another's lock while it tracks.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <thread>

#include "bench_support.h"

namespace {

std::atomic<std::int64_t> locksTaken{0};
std::atomic<std::int64_t> locksWaitedFor{0};

}  // namespace

// Stands before the C library's: a lock that cannot be had at once is counted. Every std::mutex of every library in
// this process comes through here.
extern "C" __attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex) {
  using Lock = int (*)(pthread_mutex_t*);
  static const auto real = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  locksTaken.fetch_add(1, std::memory_order_relaxed);
  if (pthread_mutex_trylock(mutex) == 0) return 0;
  locksWaitedFor.fetch_add(1, std::memory_order_relaxed);
  return real(mutex);
}

namespace {

constexpr int kFramesPerRound = 10;

/// One target and its plug-in object.
struct Track {
  Track() : scene({640, 360}, {60, 60}) { algo.start(scene); }
  void run() {
    for (int i = 0; i < kFramesPerRound; ++i) {
      scene.next();
      algo.step(scene);
    }
  }
  bench::MovingTarget scene;
  bench::OpenAlgo algo;
};

bench::Moment runTogether(std::vector<std::unique_ptr<Track>>& tracks) {
  return bench::timeOf([&] {
    std::vector<std::thread> threads;
    for (auto& track : tracks) threads.emplace_back([&track] { track->run(); });
    for (std::thread& thread : threads) thread.join();
  });
}

// Rounds of one target alone and of all together, in turn.
void BM_Threads(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<Track>> alone;
  std::vector<std::unique_ptr<Track>> together;
  alone.push_back(std::make_unique<Track>());
  for (std::size_t i = 0; i < count; ++i) together.push_back(std::make_unique<Track>());
  std::vector<double> throughput;
  std::vector<double> cpuPerFrame;
  std::int64_t waits = 0;
  std::int64_t locks = 0;
  for (auto _ : state) {
    const bench::Moment one = runTogether(alone);
    const std::int64_t waitsBefore = locksWaitedFor;
    const std::int64_t locksBefore = locksTaken;
    const bench::Moment all = runTogether(together);
    waits += locksWaitedFor - waitsBefore;
    locks += locksTaken - locksBefore;
    throughput.push_back(static_cast<double>(count) * one.wall / all.wall);
    cpuPerFrame.push_back(all.cpu / static_cast<double>(count) / one.cpu);
    state.SetIterationTime(all.wall / 1e3);
  }
  for (const auto& track : together) {
    if (bench::overlap(track->algo.trackBox_, track->scene.box()) < 0.5) state.SkipWithError("target lost");
  }
  const auto frames = static_cast<double>(state.iterations()) * static_cast<double>(count) * kFramesPerRound;
  state.counters["throughput"] = bench::medianOf(throughput);
  state.counters["best_throughput"] = bench::percentileOf(throughput, 1.0);
  state.counters["cpu_per_frame"] = bench::medianOf(cpuPerFrame);
  state.counters["locks_per_frame"] = static_cast<double>(locks) / frames;
  state.counters["waits_per_frame"] = static_cast<double>(waits) / frames;
}

BENCHMARK(BM_Threads)
    ->ArgName("targets")
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Iterations(bench::steps(9))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
