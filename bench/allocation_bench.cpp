// How often does the plug-in itself ask for memory on one frame, and for how much, beside what CSRT asks for?
// Budget: nothing the size of a picture; every picture of a frame goes into memory that is kept.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench_support.h"
#include "counting_allocator.h"

namespace {

using bench::Allocations;
using bench::allocations;
using bench::MovingTarget;
using bench::OpenAlgo;

/// Counts what the real tracker's step allocates, so that it can be told from the rest of the frame.
class CountedTracker : public cv::tracking::TrackerCSRT {
 public:
  explicit CountedTracker(cv::Ptr<cv::tracking::TrackerCSRT> real) : real_(std::move(real)) {}
  void init(cv::InputArray image, const cv::Rect& box) override { real_->init(image, box); }
  bool update(cv::InputArray image, cv::Rect& box) override {
    const Allocations before = allocations();
    const bool found = real_->update(image, box);
    spent = allocations() - before;
    return found;
  }
  void setInitialMask(cv::InputArray mask) override { real_->setInitialMask(mask); }

  Allocations spent;  ///< By the last step.

 private:
  cv::Ptr<cv::tracking::TrackerCSRT> real_;
};

constexpr double kPicture = 32.0 * 1024.0;  // bytes; the smallest picture of a frame, the crop, is larger

void BM_AllocationsTracked(benchmark::State& state) {
  MovingTarget scene({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}, {60, 60});
  OpenAlgo algo;
  algo.start(scene);
  const auto tracker = cv::makePtr<CountedTracker>(algo.tracker_);
  algo.tracker_ = tracker;
  std::vector<double> counts;
  std::vector<double> bytes;
  std::vector<double> trackerCounts;
  for (auto _ : state) {
    scene.next();
    const Allocations before = allocations();
    const cv::Rect box = algo.step(scene);
    const Allocations all = allocations() - before;
    if (box.empty()) state.SkipWithError("the target is lost: nothing to count");
    trackerCounts.push_back(static_cast<double>(tracker->spent.count));
    counts.push_back(static_cast<double>((all - tracker->spent).count));
    bytes.push_back(static_cast<double>((all - tracker->spent).bytes));
  }
  bytes.erase(bytes.begin());  // the first frame takes the memory that is kept
  const double most = bytes.empty() ? 0.0 : *std::max_element(bytes.begin(), bytes.end());
  if (most >= kPicture) state.SkipWithError("a picture was allocated on a tracked frame");
  state.counters["plugin"] = bench::medianOf(counts);
  state.counters["plugin_bytes"] = bench::medianOf(bytes);
  state.counters["plugin_most_bytes"] = most;
  state.counters["csrt"] = bench::medianOf(trackerCounts);
}

// The record that leaves is new memory on purpose: it belongs to the host.
void BM_AllocationsOfTheRecord(benchmark::State& state) {
  const OpenAlgo algo;
  DetectionResult result;
  result.dets.emplace_back();
  double count = 0.0;
  double bytes = 0.0;
  for (auto _ : state) {
    const Allocations before = allocations();
    benchmark::DoNotOptimize(std::vector<AlgoOutput>{algo.makeDetectionsOutput_(result)});
    const Allocations all = allocations() - before;
    count = static_cast<double>(all.count);
    bytes = static_cast<double>(all.bytes);
  }
  state.counters["record"] = count;
  state.counters["record_bytes"] = bytes;
}

BENCHMARK(BM_AllocationsTracked)
    ->ArgNames({"w", "h"})
    ->Args({640, 360})
    ->Args({3840, 2160})
    ->Iterations(bench::steps(60))
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AllocationsOfTheRecord)->Iterations(bench::steps(1000));

}  // namespace
