// What does a step of the engine cost beside OpenCV's, on the same pictures in turn? Budget: at most 0.15 of it with
// amd64's smallest instruction set (CSRT_ENGINE_ISA=baseline) and 0.12 with AVX2 on targets up to 120 pixels, 0.2 on
// targets of 400; init() at most a third.
//
// Part of OpenCV's time is page faults, whose number depends on what the process allocated before. They are left out
// of a fair ratio: the C library is told to keep its memory, and the faults that remain are counted. CSRT_BENCH_FAULTS
// leaves the C library as it is.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <string>
#include <vector>

#include "bench_support.h"
#include "csrt_engine/csrt_engine.h"

namespace {

using bench::MovingTarget;
using bench::Samples;
using bench::timeOf;
using Tracker = cv::Ptr<cv::tracking::TrackerCSRT>;

[[maybe_unused]] const bool memoryIsKept = [] {
  if (std::getenv("CSRT_BENCH_FAULTS") != nullptr) return false;
  constexpr int kMegabyte = 1 << 20;
  return mallopt(M_MMAP_THRESHOLD, 1024 * kMegabyte) == 1 && mallopt(M_TRIM_THRESHOLD, 1024 * kMegabyte) == 1 &&
         mallopt(M_TOP_PAD, 256 * kMegabyte) == 1;
}();

double pageFaults() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return static_cast<double>(usage.ru_minflt + usage.ru_majflt);
}

/// The time of the same work by one tracker, and the page faults in it.
struct Cost {
  Samples time;
  std::vector<double> faults;

  template <typename Work>
  void measure(Work&& work) {
    const double before = pageFaults();
    time.add(timeOf(work));
    faults.push_back(pageFaults() - before);
  }
};

/// OpenCV's tracker and the engine, one after the other on every picture, the first of them changing.
class Pair {
 public:
  explicit Pair(const cv::tracking::TrackerCSRT::Params& params) : params_(params) { renew(); }

  void renew() {
    opencv_ = cv::tracking::TrackerCSRT::create(params_);
    engine_ = csrt_engine::create(params_);
  }
  void init(const cv::Mat& picture, const cv::Rect& box) {
    inTurn([&] { opencv_->init(picture, box); }, [&] { engine_->init(picture, box); });
  }
  /// @return whether both gave the same box, and one at all
  bool step(const cv::Mat& picture) {
    cv::Rect a;
    cv::Rect b;
    bool found = false;
    inTurn([&] { found = opencv_->update(picture, a); }, [&] { engine_->update(picture, b); });
    return found && a == b;
  }
  void forget() { opencvCost_ = engineCost_ = Cost(); }

  void report(benchmark::State& state) const {
    const auto add = [&state](const std::string& name, const Cost& cost) {
      state.counters[name + "_cpu_ms"] = cost.time.cpuMedian();
      state.counters[name + "_cpu_p95_ms"] = cost.time.cpuP95();
      state.counters[name + "_faults"] = bench::medianOf(cost.faults);
    };
    add("opencv", opencvCost_);
    add("engine", engineCost_);
    state.counters["ratio"] = bench::medianRatio(engineCost_.time, opencvCost_.time);
    state.SetLabel(csrt_engine::instructionSet());
  }

 private:
  template <typename First, typename Second>
  void inTurn(First opencv, Second engine) {
    turn_ = !turn_;
    if (turn_) opencvCost_.measure(opencv);
    engineCost_.measure(engine);
    if (!turn_) opencvCost_.measure(opencv);
  }

  cv::tracking::TrackerCSRT::Params params_;
  Tracker opencv_;
  Tracker engine_;
  Cost opencvCost_;
  Cost engineCost_;
  bool turn_ = false;
};

MovingTarget sceneOf(const benchmark::State& state) {
  const int side = static_cast<int>(state.range(2));
  return {{static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}, {side, side}};
}

void BM_EngineStep(benchmark::State& state) {
  MovingTarget scene = sceneOf(state);
  scene.next();
  Pair pair({});
  pair.init(scene.pixels(), scene.box());
  for (int i = 0; i < 3; ++i) {  // the first steps take the memory that is kept
    scene.next();
    pair.step(scene.pixels());
  }
  pair.forget();
  for (auto _ : state) {
    scene.next();
    if (!pair.step(scene.pixels())) state.SkipWithError("the boxes differ, or the target is lost");
  }
  pair.report(state);
}

void BM_EngineInit(benchmark::State& state) {
  MovingTarget scene = sceneOf(state);
  Pair pair({});
  for (auto _ : state) {
    scene.next();
    pair.renew();
    pair.init(scene.pixels(), scene.box());
  }
  pair.report(state);
}

/// The walker of run.sh's clip, at its own size and scaled.
void stepOnClip(benchmark::State& state, const std::string& clip, double scale) {
  constexpr int kFirst = 240;
  cv::VideoCapture video(clip);
  std::vector<cv::Mat> frames;
  cv::Mat frame;
  const int last = kFirst + 1 + static_cast<int>(state.max_iterations);
  for (int i = 0; i < last && video.read(frame); ++i) {
    if (i >= kFirst)
      cv::resize(frame, frames.emplace_back(), {}, scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
  }
  if (frames.empty()) {
    state.SkipWithError("the clip cannot be read");
    return;
  }
  const auto side = [scale](int value) { return cvRound(value * scale); };
  Pair pair({});
  pair.init(frames.front(), {side(664), side(268), side(38), side(108)});
  pair.forget();
  std::size_t next = 1;
  for (auto _ : state) {
    if (next >= frames.size() || !pair.step(frames[next++]))
      state.SkipWithError("the boxes differ, or the target is lost");
  }
  pair.report(state);
}

// CSRT_BENCH_CLIP names the clip; bench.sh sets it. Without it there are the drawn scenes alone.
[[maybe_unused]] const bool clipIsRegistered = [] {
  const char* clip = std::getenv("CSRT_BENCH_CLIP");
  if (clip == nullptr || *clip == '\0') return false;
  for (const int percent : {50, 100, 111, 370}) {
    const auto run = [path = std::string(clip), percent](benchmark::State& state) {
      stepOnClip(state, path, percent / 100.0);
    };
    benchmark::RegisterBenchmark(("BM_EngineClip/percent:" + std::to_string(percent)).c_str(), run)
        ->Iterations(bench::steps(percent > 200 ? 40 : 120))
        ->Unit(benchmark::kMillisecond);
  }
  return true;
}();

BENCHMARK(BM_EngineStep)
    ->ArgNames({"w", "h", "box"})
    ->Args({320, 180, 60})
    ->Args({640, 360, 60})
    ->Args({1280, 720, 60})
    ->Args({1920, 1080, 60})
    ->Args({3840, 2160, 60})
    ->Args({1280, 720, 20})
    ->Args({1280, 720, 40})
    ->Args({1280, 720, 90})
    ->Args({1280, 720, 120})
    ->Args({1280, 720, 200})
    ->Args({1280, 720, 300})
    ->Args({1280, 720, 400})
    ->Iterations(bench::steps(30))
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_EngineInit)
    ->ArgNames({"w", "h", "box"})
    ->Args({640, 360, 60})
    ->Args({1280, 720, 120})
    ->Args({1280, 720, 400})
    ->Iterations(bench::steps(20))
    ->Unit(benchmark::kMillisecond);

}  // namespace
